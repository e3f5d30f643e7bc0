// IconImage: an image stored in a property-list tree, as the icon dictionary (RVITunesIcons)
// and the playlist records hold them ("Playlist Icon", "Playlist Icon Dark").
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "rvitunes/image/Image.h"
#include "rvitunes/plist/Object.h"
#include "rvitunes/plist/Ref.h"
#include "rvitunes/plist/Value.h"

namespace rvitunes {

// An immutable, shared image with the file it was read from. Stored in a tree as a plist::Value
// holding the object; copies of that value share the object (and the pixels).
class IconImage final : public plist::Object {
 public:
  // `image` must not be null (asserted). `source` is the file it came from, empty for an image
  // made in memory.
  IconImage(std::shared_ptr<const image::Image> image, std::string source);

  // A value holding a new IconImage.
  static plist::Value makeValue(std::shared_ptr<const image::Image> image, std::string source = {});

  std::string_view typeName() const override { return "image"; }

  const std::shared_ptr<const image::Image>& image() const { return image_; }
  const std::string& source() const { return source_; }

 private:
  std::shared_ptr<const image::Image> image_;
  std::string source_;
};

// The IconImage `value` holds, or null when it holds anything else (including a host's own
// objects that are not IconImages).
const IconImage* asIconImage(const plist::Value& value);
// The same, as a new reference.
plist::Ref<IconImage> iconImageRef(const plist::Value& value);

}  // namespace rvitunes
