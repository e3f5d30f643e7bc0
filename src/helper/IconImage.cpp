#include "rvitunes/helper/IconImage.h"

#include <cassert>
#include <utility>

namespace rvitunes {

IconImage::IconImage(std::shared_ptr<const image::Image> image, std::string source)
    : image_(std::move(image)), source_(std::move(source)) {
  assert(image_ != nullptr);
}

plist::Value IconImage::makeValue(std::shared_ptr<const image::Image> image, std::string source) {
  return plist::Value(
      plist::Ref<plist::Object>(plist::makeRef<IconImage>(std::move(image), std::move(source))));
}

const IconImage* asIconImage(const plist::Value& value) {
  return dynamic_cast<const IconImage*>(value.asObject());
}

plist::Ref<IconImage> iconImageRef(const plist::Value& value) {
  return plist::Ref<IconImage>(dynamic_cast<IconImage*>(value.asObject()));
}

}  // namespace rvitunes
