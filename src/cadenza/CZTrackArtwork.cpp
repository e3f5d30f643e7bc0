// CZTrack's artwork: reading every picture of a track, and replacing or deleting one or all.
#include "cadenza/CZTrackArtwork.h"

#include <mutex>
#include <utility>

#include "rvitunes/ae/AECodes.h"
#include "rvitunes/ae/Build.h"
#include "rvitunes/base/Log.h"
#include "rvitunes/cadenza/CZTrack.h"
#include "rvitunes/image/Pasteboard.h"

namespace rvitunes {

namespace {

constexpr OSType kClassArtwork = fourCharCode("cArt");
constexpr OSType kPropPicture = fourCharCode("pPCT");
constexpr ae::DescType kTypePict = ae::typePict;
constexpr const char* kPasteboardName = "Cadenza";
// A converted picture must be longer than this to count.
constexpr size_t kMinPictSize = 512;

struct ConverterSlot {
  std::mutex mutex;
  cadenza::PictConverter converter;
};

ConverterSlot& converterSlot() {
  static ConverterSlot slot;
  return slot;
}

std::optional<std::vector<uint8_t>> convertTiffToPict(std::span<const uint8_t> tiff) {
  cadenza::PictConverter converter;
  {
    ConverterSlot& slot = converterSlot();
    std::lock_guard<std::mutex> lock(slot.mutex);
    converter = slot.converter;
  }
  return converter ? converter(tiff) : cadenza::convertTiffToPictThroughPasteboard(tiff);
}

}  // namespace

namespace cadenza {

std::optional<std::vector<uint8_t>> convertTiffToPictThroughPasteboard(
    std::span<const uint8_t> tiff) {
  std::shared_ptr<image::Pasteboard> board = image::Pasteboard::withName(kPasteboardName);
  board->declareTypes({image::Pasteboard::kTypeTIFF});
  board->setData(tiff, image::Pasteboard::kTypeTIFF);
  (void)board->types();  // offers the converted forms
  std::optional<std::vector<uint8_t>> pict = board->dataForType(image::Pasteboard::kTypePICT);
  board->releaseGlobally();
  return pict;
}

PictConverter setPictConverterForTesting(PictConverter converter) {
  ConverterSlot& slot = converterSlot();
  std::lock_guard<std::mutex> lock(slot.mutex);
  return std::exchange(slot.converter, std::move(converter));
}

}  // namespace cadenza

std::vector<image::Image> CZTrack::artwork() {
  std::vector<image::Image> images;
  const int32_t count = getCountOfElementsOfClass(kClassArtwork);
  for (int32_t i = 0; i < count; ++i) {
    Reply element = getElementOfClassAtIndex(kClassArtwork, i);
    if (!element) {
      NullLog("Failed to retrieve artwork number: %d", i);
      return images;
    }
    ae::Descriptor reference;
    const OSStatus referenceStatus =
        element->getParamDesc(ae::keyDirectObject, ae::typeWildCard, &reference);
    element.reset();
    if (referenceStatus != noErr) {
      NullLog("Failed to get reference to artwork: %d", static_cast<int>(referenceStatus));
      return images;
    }
    Reply data = getPropertyOfTypeForObject(kPropPicture, reference);
    if (!data) {
      // The number is the reference's status, which is always noErr here.
      NullLog("Failed to get data Reply Event: %d", static_cast<int>(referenceStatus));
      return images;
    }
    ae::DescType type = 0;
    size_t size = 0;
    if (OSStatus status = data->sizeOfParam(ae::keyDirectObject, &type, &size); status != noErr) {
      NullLog("Failed to get size and type of data returned: %d", static_cast<int>(status));
      return images;
    }
    // `size` is that of a parameter already in memory, so the buffer is bounded by the reply.
    std::vector<uint8_t> buffer(size);
    size_t actualSize = 0;
    if (OSStatus status = data->getParamPtr(ae::keyDirectObject, kTypePict, nullptr, buffer.data(),
                                            buffer.size(), &actualSize);
        status != noErr) {
      NullLog("Failed to extract PICT data to buffer: %d", static_cast<int>(status));
      return images;
    }
    if (actualSize < buffer.size()) buffer.resize(actualSize);
    // A picture that does not decode is left out; the others are still read.
    if (Result<image::Image> decoded = image::Image::fromData(std::span<const uint8_t>(buffer))) {
      images.push_back(std::move(*decoded));
    }
  }
  return images;
}

void CZTrack::setArtwork(const std::optional<std::vector<image::Image>>& images) {
  if (!images) {
    deleteAllElementsOfClass(kClassArtwork);
    return;
  }
  for (size_t i = 0; i < images->size(); ++i) {
    (void)setArtworkAtIndex(&(*images)[i], static_cast<int32_t>(i));
  }
}

bool CZTrack::setArtworkAtIndex(const image::Image* image, int32_t index) {
  if (image == nullptr) {
    deleteElementOfClass(index, kClassArtwork);
    return false;
  }
  Result<std::vector<uint8_t>> tiff = image->tiffRepresentation();
  if (!tiff) {
    NullLog("Unable to convert NSImage to TIFF");
    return false;
  }
  std::optional<std::vector<uint8_t>> pict = convertTiffToPict(*tiff);
  if (!pict || pict->size() < kMinPictSize) {
    NullLog("Unable to convert to PICT");
    return false;
  }
  ae::Descriptor picture;
  const ae::BuildArg args[] = {ae::BuildArg::bytes(std::span<const uint8_t>(*pict))};
  if (OSStatus status = ae::buildDesc(&picture, nullptr, "'PICT'(@)", args); status != noErr) {
    NullLog("Error with constructing PICT: %d", static_cast<int>(status));
    return false;
  }
  return setPropertyOfElementOfClassAtIndexWithValue(kPropPicture, kClassArtwork, index, picture);
}

}  // namespace rvitunes
