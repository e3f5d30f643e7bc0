// rvitunes-soak: a bounded load run against the reference player daemon, over the local event
// bus only. See SoakRun.h; `rvitunes-soak --help` lists the options. The program starts copies
// of itself as the client processes ("rvitunes-soak client ...", not meant for direct use).
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "SoakClient.h"
#include "SoakRun.h"

namespace {

using rvitunes::soak::ClientOptions;
using rvitunes::soak::RunOptions;

constexpr const char* kUsage =
    "usage: rvitunes-soak [options]\n"
    "\n"
    "Starts the player daemon on a library on a private event bus, drives it from several\n"
    "client processes with several threads each through the framework's classes, checks every\n"
    "answer, and watches the daemon's memory and descriptors. Exit status 0 when all is well.\n"
    "\n"
    "  --seconds N          length of the run (default 300)\n"
    "  --clients N          client processes (default 4)\n"
    "  --threads N          threads per client (default 4)\n"
    "  --library FILE       use a copy of this library file instead of generating one\n"
    "  --tracks N           tracks of the generated library (default 2000)\n"
    "  --playlists N        playlists of the generated library (default 60)\n"
    "  --seed N             seed of the generator and the clients (default 3)\n"
    "  --player PATH        the daemon (default: the one built with this program)\n"
    "  --player-version V   the version the daemon pretends to be (default: its own)\n"
    "  --sample-interval S  seconds between looks at the daemon (default 3)\n"
    "  --warmup S           seconds before memory and descriptors must hold still\n"
    "                       (default: a quarter of the run, 15 to 60)\n"
    "  --timeout S          the clients' event timeout in seconds (default 15)\n"
    "  --keep               keep the scratch folder (kept anyway after a failure)\n"
    "  --progress           print each sample of the daemon as it is taken\n";

// Reads "--name value" pairs and flags; answers false (after a message) on a mistake.
class Arguments {
 public:
  using Setter = std::function<bool(const std::string&)>;
  void value(const std::string& name, Setter set) { values_[name] = std::move(set); }
  void flag(const std::string& name, bool* target) { flags_[name] = target; }

  bool parse(const std::vector<std::string>& args) {
    for (size_t i = 0; i < args.size(); ++i) {
      if (auto f = flags_.find(args[i]); f != flags_.end()) {
        *f->second = true;
        continue;
      }
      auto v = values_.find(args[i]);
      if (v == values_.end()) return complain("unknown argument \"" + args[i] + "\"");
      if (i + 1 >= args.size()) return complain(args[i] + " needs a value");
      if (!v->second(args[++i])) return complain("bad value for " + v->first + ": " + args[i]);
    }
    return true;
  }

 private:
  static bool complain(const std::string& what) {
    std::fprintf(stderr, "rvitunes-soak: %s\n\n%s", what.c_str(), kUsage);
    return false;
  }
  std::map<std::string, Setter> values_;
  std::map<std::string, bool*> flags_;
};

template <class T>
Arguments::Setter number(T* target, T low, T high) {
  return [=](const std::string& text) {
    char* end = nullptr;
    const double parsed = std::strtod(text.c_str(), &end);
    if (end == text.c_str() || *end != '\0' || parsed < static_cast<double>(low) ||
        parsed > static_cast<double>(high)) {
      return false;
    }
    *target = static_cast<T>(parsed);
    return true;
  };
}

Arguments::Setter text(std::string* target) {
  return [=](const std::string& value) {
    *target = value;
    return !value.empty();
  };
}

int clientMain(const std::vector<std::string>& args) {
  ClientOptions options;
  Arguments parser;
  parser.value("--expected", text(&options.expectedLibrary));
  parser.value("--report", text(&options.reportPath));
  parser.value("--index", number(&options.index, 0, 1000));
  parser.value("--clients", number(&options.clients, 1, 1000));
  parser.value("--threads", number(&options.threads, 1, 256));
  parser.value("--seconds", number(&options.seconds, 0.0, 1e6));
  parser.value("--seed", number<uint64_t>(&options.seed, 0, 1ULL << 52));
  parser.value("--timeout", number(&options.timeoutSeconds, 1, 3600));
  parser.value("--player-version", text(&options.playerVersion));
  if (!parser.parse(args) || options.expectedLibrary.empty() || options.reportPath.empty()) {
    return 2;
  }
  return rvitunes::soak::runClient(options);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<std::string> args(argv + 1, argv + argc);
  if (!args.empty() && args.front() == "client") {
    return clientMain(std::vector<std::string>(args.begin() + 1, args.end()));
  }
  RunOptions options;
  options.player = RVITUNES_SOAK_PLAYER_PATH;
  bool help = false;
  Arguments parser;
  parser.value("--seconds", number(&options.seconds, 1.0, 1e6));
  parser.value("--clients", number(&options.clients, 1, 64));
  parser.value("--threads", number(&options.threads, 1, 64));
  parser.value("--library", text(&options.library));
  parser.value("--tracks", number(&options.generator.tracks, 1, 1'000'000));
  parser.value("--playlists", number(&options.generator.playlists, 5, 100'000));
  parser.value("--seed", number<uint64_t>(&options.generator.seed, 0, 1ULL << 52));
  parser.value("--player", text(&options.player));
  parser.value("--player-version", text(&options.playerVersion));
  parser.value("--sample-interval", number(&options.sampleInterval, 0.1, 3600.0));
  parser.value("--warmup", number(&options.warmup, 0.0, 1e6));
  parser.value("--timeout", number(&options.timeoutSeconds, 1, 3600));
  parser.flag("--keep", &options.keep);
  parser.flag("--progress", &options.progress);
  parser.flag("--help", &help);
  parser.flag("-h", &help);
  if (!parser.parse(args)) return 2;
  if (help) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  return rvitunes::soak::runSoak(options);
}
