// Where a writer is in a tree, for messages: "Playlists[3].Name".
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace rvitunes::plist {

class TreePath {
 public:
  void pushKey(std::string_view key) {
    marks_.push_back(text_.size());
    if (!text_.empty()) text_.push_back('.');
    text_.append(key);
  }
  void pushIndex(size_t i) {
    marks_.push_back(text_.size());
    text_.append("[" + std::to_string(i) + "]");
  }
  void pop() {
    text_.resize(marks_.back());
    marks_.pop_back();
  }
  // "the root" at the top.
  std::string text() const { return text_.empty() ? "the root" : text_; }

 private:
  std::string text_;
  std::vector<size_t> marks_;
};

}  // namespace rvitunes::plist
