#include "DemoReport.h"

#include <cmath>

#include "rvitunes/plist/JsonWriter.h"

namespace rvitunes::cli {

namespace {

// Width of "[NN] name ....." before the findings.
constexpr size_t kPrefixWidth = 40;

}  // namespace

StepOutcome StepOutcome::failed(std::string reason) {
  StepOutcome outcome;
  outcome.fail(std::move(reason));
  return outcome;
}

StepOutcome StepOutcome::skipped(std::string reason) {
  StepOutcome outcome;
  outcome.state_ = State::kSkipped;
  outcome.reason_ = std::move(reason);
  return outcome;
}

void StepOutcome::fail(std::string reason) {
  state_ = State::kFailed;
  reason_ = std::move(reason);
}

std::string DemoReport::formatDuration(double milliseconds) {
  char text[32];
  if (milliseconds >= 1000) {
    std::snprintf(text, sizeof text, "%.2f s", milliseconds / 1000);
  } else if (milliseconds >= 10) {
    std::snprintf(text, sizeof text, "%.0f ms", milliseconds);
  } else {
    std::snprintf(text, sizeof text, "%.1f ms", milliseconds);
  }
  return text;
}

std::string DemoReport::stepPrefix(int number, std::string_view name) {
  char head[16];
  std::snprintf(head, sizeof head, "[%2d] ", number);
  std::string prefix = std::string(head) + std::string(name) + " ";
  // Names are plain ASCII, so bytes count as columns.
  while (prefix.size() < kPrefixWidth - 1)
    prefix += '.';
  return prefix + ' ';
}

std::string DemoReport::jsonLine(int number, std::string_view name, const StepOutcome& outcome,
                                 double milliseconds) {
  plist::Ref<plist::Dictionary> object = plist::Dictionary::create();
  object->set("step", plist::Value::integer(number));
  object->set("name", plist::Value::string(name));
  object->set("ok", plist::Value::boolean(outcome.ok()));
  object->set("ms", plist::Value::real(std::round(milliseconds * 10) / 10));
  if (outcome.state() == StepOutcome::State::kSkipped) {
    object->set("skipped", plist::Value::boolean(true));
  }
  if (!outcome.ok()) object->set("error", plist::Value::string(outcome.reason()));
  object->set("summary", plist::Value::string(outcome.summary()));
  object->set("details", plist::Value(outcome.details()));
  Result<std::string> text = plist::JsonWriter::write(plist::Value(object), 0);
  // Details hold only strings, numbers, booleans and containers of them, which always encode.
  return text ? *text : std::string("{}");
}

void DemoReport::note(std::string_view line) const {
  if (json_) return;
  std::fprintf(out_, "%.*s\n", static_cast<int>(line.size()), line.data());
  std::fflush(out_);
}

void DemoReport::step(int number, std::string_view name, const StepOutcome& outcome,
                      double milliseconds) {
  ++steps_;
  if (!outcome.ok()) ++failures_;
  if (json_) {
    std::fprintf(out_, "%s\n", jsonLine(number, name, outcome, milliseconds).c_str());
  } else {
    std::string line = stepPrefix(number, name);
    switch (outcome.state()) {
      case StepOutcome::State::kOk:
        line += outcome.summary();
        break;
      case StepOutcome::State::kFailed:
        line += "FAILED: " + outcome.reason();
        break;
      case StepOutcome::State::kSkipped:
        line += "skipped: " + outcome.reason();
        break;
    }
    line += "  (" + formatDuration(milliseconds) + ")";
    std::fprintf(out_, "%s\n", line.c_str());
    for (const std::string& more : outcome.lines()) {
      std::fprintf(out_, "       %s\n", more.c_str());
    }
  }
  std::fflush(out_);
  if (outcome.state() == StepOutcome::State::kFailed) {
    std::fprintf(err_, "rvitunes demo: step %d (%.*s) failed: %s\n", number,
                 static_cast<int>(name.size()), name.data(), outcome.reason().c_str());
    std::fflush(err_);
  }
}

}  // namespace rvitunes::cli
