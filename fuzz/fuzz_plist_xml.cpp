// XmlReader on arbitrary bytes. Whatever it accepts must survive the trip through the writers:
// the XML it writes reads back to an equal tree and writes again to the same text, and the same
// holds for the binary form of that tree.
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "FuzzSupport.h"
#include "rvitunes/plist/BinaryReader.h"
#include "rvitunes/plist/BinaryWriter.h"
#include "rvitunes/plist/XmlReader.h"
#include "rvitunes/plist/XmlWriter.h"

using namespace rvitunes::plist;
using rvitunes::fuzz::fail;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const ParseResult first = XmlReader::read(text);
  if (!first.ok()) {
    if (!first.root.isNil()) fail("a failed read handed out a tree", first.describe());
    return 0;
  }
  if (first.root.isNil()) return 0;
  if (!rvitunes::fuzz::inspect(first.root).writable) {
    fail("the XML reader made a node no writer can hold");
  }

  const auto written = XmlWriter::write(first.root, first.entityStyle);
  if (!written.ok()) fail("XmlWriter refused a tree XmlReader made", written.status().toString());
  const ParseResult second = XmlReader::read(*written);
  if (!second.ok()) fail("written XML does not read back", second.describe());
  if (!(second.root == first.root)) fail("XML read back differs from the tree written");
  const auto rewritten = XmlWriter::write(second.root, first.entityStyle);
  if (!rewritten.ok() || *rewritten != *written) fail("XML written twice differs");

  const auto binary = BinaryWriter::write(first.root);
  if (!binary.ok()) fail("BinaryWriter refused a tree XmlReader made", binary.status().toString());
  const ParseResult fromBinary = BinaryReader::read(
      std::span(reinterpret_cast<const uint8_t*>(binary->data()), binary->size()));
  if (!fromBinary.ok()) fail("written binary does not read back", fromBinary.describe());
  if (!(fromBinary.root == first.root)) fail("binary read back differs from the XML tree");
  return 0;
}
