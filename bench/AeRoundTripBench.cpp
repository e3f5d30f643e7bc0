// One wait-for-reply get-data round trip: to an application in this process, to one served over
// its bus socket, and a raw Unix-socket ping-pong moving the same number of bytes each way,
// which is the floor the bus round trip is measured against.
//
// Run: build/release/bench/bench_ae_round_trip --benchmark_repetitions=10
//        --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "rvitunes/ae/Build.h"
#include "rvitunes/ae/EventManager.h"
#include "rvitunes/ae/Wire.h"
#include "rvitunes/base/FileDescriptor.h"

namespace {

using namespace rvitunes;
using namespace rvitunes::ae;

constexpr OSType kPlayer = fourCharCode("hook");

// The name of the library playlist, asked for the way the framework asks.
Descriptor getNameRequest() {
  Descriptor event;
  BuildError err;
  const OSType target = kPlayer;
  buildAppleEvent(kAECoreSuite, kAEGetData, typeApplSignature,
                  std::span(reinterpret_cast<const uint8_t*>(&target), sizeof target),
                  kAutoGenerateReturnID, kAnyTransactionID, &event, &err,
                  "'----':obj { form:prop, want:type(prop), seld:type(pnam), "
                  "from:obj { form:indx, want:type(cLiP), seld:long(1), from:null() } }");
  return event;
}

OSStatus answerName(const Descriptor&, Descriptor& reply) {
  reply.putParamDesc(keyDirectObject, Descriptor::makeUnicodeText("Library"));
  return noErr;
}

// A bus directory of its own, removed at the end.
class ScratchBus {
 public:
  ScratchBus() {
    std::string pattern = "/tmp/rvbench-XXXXXX";
    path_ = ::mkdtemp(pattern.data()) != nullptr ? pattern : "";
  }
  ~ScratchBus() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  EventManager::Options options() const { return {path_ + "/bus"}; }

 private:
  std::string path_;
};

size_t flatSize(const Descriptor& desc) {
  auto flat = flatten(desc);
  return flat ? flat->size() : 0;
}

void BM_InProcessGetData(benchmark::State& state) {
  ScratchBus bus;
  EventManager manager(bus.options());
  auto app = manager.registerApplication(kPlayer, "iTunes");
  (*app)->installEventHandler(kAECoreSuite, kAEGetData, answerName);
  const Descriptor request = getNameRequest();
  Descriptor reply;
  for (auto _ : state) {
    if (manager.send(request, &reply, kAEWaitReply | kAENeverInteract, kAEDefaultTimeout) !=
        noErr) {
      state.SkipWithError("send failed");
      break;
    }
    benchmark::DoNotOptimize(reply);
  }
}
BENCHMARK(BM_InProcessGetData)->UseRealTime();

void BM_BusGetData(benchmark::State& state) {
  ScratchBus bus;
  EventManager server(bus.options());
  auto app = server.registerApplication(kPlayer, "iTunes");
  (*app)->installEventHandler(kAECoreSuite, kAEGetData, answerName);
  if (!server.publish(kPlayer).ok()) {
    state.SkipWithError("cannot publish");
    return;
  }
  EventManager client(bus.options());
  const Descriptor request = getNameRequest();
  Descriptor reply;
  for (auto _ : state) {
    if (client.send(request, &reply, kAEWaitReply | kAENeverInteract, kAEDefaultTimeout) != noErr) {
      state.SkipWithError("send failed");
      break;
    }
    benchmark::DoNotOptimize(reply);
  }
  state.counters["request_bytes"] = static_cast<double>(flatSize(request) + kBusFrameHeaderSize);
  state.counters["reply_bytes"] = static_cast<double>(flatSize(reply) + kBusFrameHeaderSize);
}
BENCHMARK(BM_BusGetData)->UseRealTime();

bool readExactly(int fd, char* buffer, size_t size) {
  while (size > 0) {
    const ssize_t n = ::read(fd, buffer, size);
    if (n <= 0) return false;
    buffer += n;
    size -= static_cast<size_t>(n);
  }
  return true;
}

// The same bytes as BM_BusGetData moves, between two threads over a Unix stream socket, with
// nothing else done: the cost of the two wake-ups and four system calls a round trip needs.
void BM_RawUnixPingPong(benchmark::State& state) {
  const Descriptor request = getNameRequest();
  Descriptor reply = makeReplyEvent(request);
  answerName(request, reply);
  const size_t requestBytes = flatSize(request) + kBusFrameHeaderSize;
  const size_t replyBytes = flatSize(reply) + kBusFrameHeaderSize;
  int pair[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
    state.SkipWithError("socketpair failed");
    return;
  }
  FileDescriptor client(pair[0]);
  FileDescriptor server(pair[1]);
  std::thread echo([fd = server.get(), requestBytes, replyBytes] {
    std::string in(requestBytes, '\0');
    const std::string out(replyBytes, 'r');
    while (readExactly(fd, in.data(), in.size())) {
      if (::write(fd, out.data(), out.size()) != static_cast<ssize_t>(out.size())) return;
    }
  });
  const std::string out(requestBytes, 'q');
  std::string in(replyBytes, '\0');
  for (auto _ : state) {
    if (::write(client.get(), out.data(), out.size()) != static_cast<ssize_t>(out.size()) ||
        !readExactly(client.get(), in.data(), in.size())) {
      state.SkipWithError("ping-pong failed");
      break;
    }
  }
  ::shutdown(client.get(), SHUT_RDWR);
  echo.join();
  state.counters["request_bytes"] = static_cast<double>(requestBytes);
  state.counters["reply_bytes"] = static_cast<double>(replyBytes);
}
BENCHMARK(BM_RawUnixPingPong)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
