#include "rvitunes/ae/BusFrame.h"

#include <cassert>

namespace rvitunes::ae {
namespace {

void putU32(std::string& out, uint32_t v) {
  out.push_back(static_cast<char>(v >> 24));
  out.push_back(static_cast<char>(v >> 16));
  out.push_back(static_cast<char>(v >> 8));
  out.push_back(static_cast<char>(v));
}

uint32_t getU32(std::string_view b, size_t at) {
  return (static_cast<uint32_t>(static_cast<uint8_t>(b[at])) << 24) |
         (static_cast<uint32_t>(static_cast<uint8_t>(b[at + 1])) << 16) |
         (static_cast<uint32_t>(static_cast<uint8_t>(b[at + 2])) << 8) |
         static_cast<uint32_t>(static_cast<uint8_t>(b[at + 3]));
}

Status corrupt(size_t offset, const std::string& what) {
  return Status::error(errAECorruptData,
                       "bus frame: " + what + " at header offset " + std::to_string(offset));
}

}  // namespace

std::string encodeBusFrameHeader(const BusFrameHeader& header) {
  std::string out;
  out.reserve(kBusFrameHeaderSize);
  putU32(out, kBusFrameMagic);
  out.push_back(static_cast<char>(kBusFrameVersion >> 8));
  out.push_back(static_cast<char>(kBusFrameVersion & 0xFF));
  out.push_back(static_cast<char>(header.kind));
  out.push_back('\0');
  putU32(out, header.flags);
  putU32(out, static_cast<uint32_t>(header.returnID));
  putU32(out, static_cast<uint32_t>(header.transactionID));
  putU32(out, header.payloadLength);
  return out;
}

std::string encodeBusFrame(BusFrameHeader header, std::string_view payload) {
  assert(payload.size() <= kBusMaxPayloadSize);
  header.payloadLength = static_cast<uint32_t>(payload.size());
  std::string out = encodeBusFrameHeader(header);
  out.append(payload);
  return out;
}

Result<BusFrameHeader> decodeBusFrameHeader(std::string_view bytes, uint32_t maxPayload) {
  if (bytes.size() < kBusFrameHeaderSize) return corrupt(bytes.size(), "header cut short");
  if (getU32(bytes, 0) != kBusFrameMagic) return corrupt(0, "bad magic");
  const unsigned version = (static_cast<uint8_t>(bytes[4]) << 8) | static_cast<uint8_t>(bytes[5]);
  if (version != kBusFrameVersion) {
    return corrupt(4, "unsupported version " + std::to_string(version));
  }
  const auto kind = static_cast<uint8_t>(bytes[6]);
  if (kind < static_cast<uint8_t>(BusFrameKind::request) ||
      kind > static_cast<uint8_t>(BusFrameKind::reply)) {
    return corrupt(6, "unknown kind " + std::to_string(kind));
  }
  if (bytes[7] != '\0') return corrupt(7, "reserved byte not zero");
  BusFrameHeader header;
  header.kind = static_cast<BusFrameKind>(kind);
  header.flags = getU32(bytes, 8);
  header.returnID = static_cast<int32_t>(getU32(bytes, 12));
  header.transactionID = static_cast<int32_t>(getU32(bytes, 16));
  header.payloadLength = getU32(bytes, 20);
  if (header.payloadLength > maxPayload) {
    return Status::error(memFullErr, "bus frame: payload of " +
                                         std::to_string(header.payloadLength) +
                                         " bytes exceeds the limit of " +
                                         std::to_string(maxPayload) + " at header offset 20");
  }
  return header;
}

void BusFrameReader::decodeHeader() {
  if (header_ || !status_.ok() || buffer_.size() - offset_ < kBusFrameHeaderSize) return;
  auto header = decodeBusFrameHeader(std::string_view(buffer_).substr(offset_, kBusFrameHeaderSize),
                                     maxPayload_);
  if (!header) {
    status_ = header.status();
    return;
  }
  header_ = *header;
  offset_ += kBusFrameHeaderSize;
}

Status BusFrameReader::feed(std::string_view bytes) {
  if (!status_.ok()) return status_;
  // Drop consumed bytes before appending once they make up half the buffer: the buffer stays
  // within twice the unfinished data and the copying stays linear in the bytes received.
  if (offset_ == buffer_.size()) {
    buffer_.clear();
    offset_ = 0;
  } else if (offset_ > 0 && offset_ * 2 >= buffer_.size()) {
    buffer_.erase(0, offset_);
    offset_ = 0;
  }
  buffer_.append(bytes);
  decodeHeader();
  return status_;
}

std::optional<BusFrameReader::Frame> BusFrameReader::next() {
  decodeHeader();
  if (!header_ || buffer_.size() - offset_ < header_->payloadLength) return std::nullopt;
  Frame frame{*header_, buffer_.substr(offset_, header_->payloadLength)};
  offset_ += header_->payloadLength;
  header_.reset();
  return frame;
}

}  // namespace rvitunes::ae
