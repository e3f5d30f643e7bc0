#include "platform/PanelRules.h"

#include <sys/stat.h>

#include <filesystem>

namespace rvitunes::platform {
namespace {

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    const auto lower = [](char c) {
      return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
    };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

std::string_view withoutDot(std::string_view type) {
  if (type.starts_with('.')) type.remove_prefix(1);
  return type;
}

}  // namespace

std::optional<std::string> PanelRules::refusal(const std::string& path,
                                               const OpenPanelRequest& request) {
  struct stat info {};
  if (path.find('\0') != std::string::npos || ::stat(path.c_str(), &info) != 0) {
    return "There is no file at \"" + path + "\".";
  }
  if (S_ISDIR(info.st_mode)) {
    if (request.canChooseDirectories) return std::nullopt;
    return "\"" + path + "\" is a folder; choose a file.";
  }
  if (!S_ISREG(info.st_mode)) return "\"" + path + "\" is not a regular file.";
  if (!hasAllowedExtension(path, request.allowedFileTypes)) {
    return "\"" + path + "\" is not one of the allowed kinds (" +
           describeTypes(request.allowedFileTypes) + ").";
  }
  return std::nullopt;
}

bool PanelRules::hasAllowedExtension(std::string_view path, const std::vector<std::string>& types) {
  if (types.empty()) return true;
  const std::string_view name = path.substr(path.rfind('/') + 1);
  const size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return false;
  const std::string_view extension = name.substr(dot + 1);
  for (const std::string& type : types) {
    if (equalsIgnoringCase(extension, withoutDot(type))) return true;
  }
  return false;
}

std::string PanelRules::describeTypes(const std::vector<std::string>& types) {
  std::string text;
  for (const std::string& type : types) {
    if (!text.empty()) text += ", ";
    text += withoutDot(type);
  }
  return text;
}

std::string PanelRules::absolute(const std::string& path) {
  std::error_code error;
  std::filesystem::path made = std::filesystem::absolute(path, error);
  if (error) return path;
  return made.lexically_normal().string();
}

}  // namespace rvitunes::platform
