// Framing of the local event bus: every message on a bus socket is a 24-byte header followed by
// a payload (a flattened Apple event). The byte layout is documented in docs/formats/wire.md.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "rvitunes/base/Result.h"

namespace rvitunes::ae {

// "RVAE": the first four bytes of every frame.
inline constexpr uint32_t kBusFrameMagic = 0x52564145;
inline constexpr uint16_t kBusFrameVersion = 1;
inline constexpr size_t kBusFrameHeaderSize = 24;
// The largest payload either side accepts; a header announcing more closes the connection
// before anything is allocated for it.
inline constexpr uint32_t kBusMaxPayloadSize = 64u * 1024u * 1024u;

enum class BusFrameKind : uint8_t {
  request = 1,         // an event whose sender waits for (or queues) a reply
  requestNoReply = 2,  // an event sent with kAENoReply; the receiver answers nothing
  reply = 3,           // the answer to a request, carrying the request's return ID
};

struct BusFrameHeader {
  BusFrameKind kind = BusFrameKind::request;
  uint32_t flags = 0;          // requests: the sender's send mode; replies: 0
  int32_t returnID = 0;        // matches a reply to its request
  int32_t transactionID = 0;   // the event's transaction ID, informational
  uint32_t payloadLength = 0;  // bytes that follow the header
};

// The 24 header bytes of `header`, big-endian.
std::string encodeBusFrameHeader(const BusFrameHeader& header);
// Header and payload in one buffer; header.payloadLength is taken from `payload`. The payload
// must not exceed kBusMaxPayloadSize (asserted).
std::string encodeBusFrame(BusFrameHeader header, std::string_view payload);

// Reads a header from exactly kBusFrameHeaderSize bytes. errAECorruptData when the magic,
// version, kind or reserved byte is wrong; memFullErr when the payload length exceeds
// `maxPayload`. The message names the field and its byte offset.
Result<BusFrameHeader> decodeBusFrameHeader(std::string_view bytes,
                                            uint32_t maxPayload = kBusMaxPayloadSize);

// Splits a byte stream into frames. Bytes are fed as they arrive; payload storage grows with
// the bytes actually received, never with what a header merely announces. After the first
// error the reader stays failed. Not thread-safe.
class BusFrameReader {
 public:
  struct Frame {
    BusFrameHeader header;
    std::string payload;
  };

  explicit BusFrameReader(uint32_t maxPayload = kBusMaxPayloadSize) : maxPayload_(maxPayload) {}

  // Appends `bytes` to the stream. Answers the failure once the stream is malformed.
  Status feed(std::string_view bytes);
  // The next complete frame, or nullopt when more bytes are needed.
  std::optional<Frame> next();
  // True when some bytes of an unfinished frame are held (a stream ending now is truncated).
  bool midFrame() const { return buffer_.size() > offset_ || header_.has_value(); }
  const Status& status() const { return status_; }

 private:
  void decodeHeader();

  uint32_t maxPayload_;
  std::string buffer_;  // undecoded bytes: a partial header, or payload bytes of header_
  size_t offset_ = 0;   // bytes of buffer_ already consumed
  std::optional<BusFrameHeader> header_;
  Status status_;
};

}  // namespace rvitunes::ae
