#include "SoakReport.h"

#include <fstream>
#include <sstream>

#include "rvitunes/base/FileSystem.h"
#include "rvitunes/base/OSStatus.h"

namespace rvitunes::soak {
namespace {

constexpr std::array<std::string_view, kKindCount> kKindNames = {
    "track", "playlist", "search", "write", "artwork", "cache", "application"};

// Problem texts travel on one line each.
std::string oneLine(std::string text) {
  for (char& c : text) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  return text;
}

}  // namespace

std::string_view kindName(Kind kind) {
  return kKindNames[static_cast<size_t>(kind)];
}

KindStats& KindStats::operator+=(const KindStats& other) {
  operations += other.operations;
  checked += other.checked;
  mismatches += other.mismatches;
  errors += other.errors;
  timeouts += other.timeouts;
  return *this;
}

Status ClientReport::writeFile(const std::string& path) const {
  std::ostringstream out;
  for (size_t k = 0; k < kKindCount; ++k) {
    const KindStats& s = kinds[k];
    out << "kind " << kKindNames[k] << ' ' << s.operations << ' ' << s.checked << ' '
        << s.mismatches << ' ' << s.errors << ' ' << s.timeouts << '\n';
  }
  out << "timeouts " << timeouts << '\n' << "late " << lateReplies << '\n';
  for (const WriteRecord& w : writes)
    out << "write " << w.trackId << ' ' << w.rating << ' ' << w.playCount << '\n';
  for (const std::string& problem : problems)
    out << "problem " << oneLine(problem) << '\n';
  if (complete) out << "complete\n";
  return writeFileAtomically(FileSystem::defaultFileSystem(), path, out.str());
}

Result<ClientReport> ClientReport::readFile(const std::string& path) {
  std::ifstream in(path);
  if (!in) return Status::error(fnfErr, "no report at " + path);
  ClientReport report;
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string tag;
    fields >> tag;
    if (tag == "kind") {
      std::string name;
      KindStats s;
      fields >> name >> s.operations >> s.checked >> s.mismatches >> s.errors >> s.timeouts;
      for (size_t k = 0; k < kKindCount; ++k) {
        if (kKindNames[k] == name) report.kinds[k] = s;
      }
    } else if (tag == "timeouts") {
      fields >> report.timeouts;
    } else if (tag == "late") {
      fields >> report.lateReplies;
    } else if (tag == "write") {
      WriteRecord w;
      fields >> w.trackId >> w.rating >> w.playCount;
      report.writes.push_back(w);
    } else if (tag == "problem") {
      report.problems.push_back(line.size() > 8 ? line.substr(8) : std::string());
    } else if (tag == "complete") {
      report.complete = true;
    }
  }
  return report;
}

}  // namespace rvitunes::soak
