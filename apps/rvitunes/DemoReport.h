// How rvitunes demo shows its steps: one numbered line per step with what it found and how long
// it took, the step's further lines indented below it; or, for scripts, one JSON object per
// step on a line of its own. A failed step also says why on standard error.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "rvitunes/plist/Dictionary.h"
#include "rvitunes/plist/Ref.h"
#include "rvitunes/plist/Value.h"

namespace rvitunes::cli {

// What one step did. A step fails with a reason; a step that could not run because an earlier
// one failed is skipped, with the reason naming that step; both count as not ok.
class StepOutcome {
 public:
  enum class State { kOk, kFailed, kSkipped };

  StepOutcome() : details_(plist::Dictionary::create()) {}
  static StepOutcome failed(std::string reason);
  static StepOutcome skipped(std::string reason);

  State state() const { return state_; }
  bool ok() const { return state_ == State::kOk; }
  const std::string& reason() const { return reason_; }
  // Turns an outcome built so far into a failure, keeping its lines and details.
  void fail(std::string reason);

  // The one line after the step's name.
  const std::string& summary() const { return summary_; }
  void setSummary(std::string summary) { summary_ = std::move(summary); }
  // Lines shown indented below the step, in order.
  const std::vector<std::string>& lines() const { return lines_; }
  void addLine(std::string line) { lines_.push_back(std::move(line)); }
  // The same findings for --json, under the step's "details". Values are copied in.
  const plist::Ref<plist::Dictionary>& details() const { return details_; }
  void detail(std::string_view key, plist::Value value) { details_->set(key, std::move(value)); }

 private:
  State state_ = State::kOk;
  std::string reason_;
  std::string summary_;
  std::vector<std::string> lines_;
  plist::Ref<plist::Dictionary> details_;
};

class DemoReport {
 public:
  // Writes steps to `out` (text or JSON) and failure reasons to `err`; neither is owned.
  DemoReport(bool json, std::FILE* out, std::FILE* err) : json_(json), out_(out), err_(err) {}

  bool json() const { return json_; }

  // A line of text output outside the steps (the heading, the closing words); nothing in JSON.
  void note(std::string_view line) const;
  // Shows step `number` and counts it.
  void step(int number, std::string_view name, const StepOutcome& outcome, double milliseconds);

  int steps() const { return steps_; }
  int failures() const { return failures_; }

  // "0.4 ms", "12 ms", "1.23 s": a duration as the step lines show it.
  static std::string formatDuration(double milliseconds);
  // "[ 3] load the library file ......... " for step 3: the number and the name padded with
  // dots to one width, so that the findings line up.
  static std::string stepPrefix(int number, std::string_view name);
  // The JSON object of one step, on one line: step, name, ok, ms (to 0.1), details, and
  // "skipped" and "error" when it did not work.
  static std::string jsonLine(int number, std::string_view name, const StepOutcome& outcome,
                              double milliseconds);

 private:
  bool json_;
  std::FILE* out_;
  std::FILE* err_;
  int steps_ = 0;
  int failures_ = 0;
};

}  // namespace rvitunes::cli
