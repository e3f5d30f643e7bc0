// BinaryReader on arbitrary bytes. Whatever it accepts and BinaryWriter can hold must read
// back from the writer's output as an equal tree, and write again to the same bytes.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "FuzzSupport.h"
#include "rvitunes/plist/BinaryReader.h"
#include "rvitunes/plist/BinaryWriter.h"

using namespace rvitunes::plist;
using rvitunes::fuzz::fail;

namespace {
std::span<const uint8_t> bytesOf(const std::string& s) {
  return {reinterpret_cast<const uint8_t*>(s.data()), s.size()};
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const ParseResult first = BinaryReader::read(std::span(data, size));
  if (!first.ok()) {
    if (!first.root.isNil()) fail("a failed read handed out a tree", first.describe());
    return 0;
  }
  if (first.root.isNil()) return 0;
  const rvitunes::fuzz::TreeShape shape = rvitunes::fuzz::inspect(first.root);
  if (!shape.small) return 0;

  const auto written = BinaryWriter::write(first.root);
  if (!shape.writable) {
    if (written.ok()) fail("BinaryWriter accepted a nil, an object or a non-string key");
    return 0;
  }
  if (!written.ok()) fail("BinaryWriter refused a writable tree", written.status().toString());
  const ParseResult second = BinaryReader::read(bytesOf(*written));
  if (!second.ok()) fail("written binary does not read back", second.describe());
  if (!(second.root == first.root)) fail("binary read back differs from the tree written");
  const auto rewritten = BinaryWriter::write(second.root);
  if (!rewritten.ok() || *rewritten != *written) fail("binary written twice differs");
  return 0;
}
