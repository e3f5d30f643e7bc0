// CZAppleEventObject: construction, the parameter texts and alias records. The requests are in
// CZAppleEventObjectRequests.cpp, the typed property access in CZAppleEventObjectConversions.cpp.
#include "rvitunes/cadenza/CZAppleEventObject.h"

#include <initializer_list>
#include <string>
#include <utility>

#include "rvitunes/ae/FileReference.h"

namespace rvitunes {

const OSType iTunesSignature = fourCharCode("hook");

namespace {

// Copies `format`, replacing each %@ and %d in turn by the next of `values` (numbers arrive
// already written out). Values are inserted as they are and never scanned again.
std::string fillTemplate(std::string_view format, std::initializer_list<std::string_view> values) {
  std::string out;
  out.reserve(format.size() + 32);
  auto next = values.begin();
  for (size_t i = 0; i < format.size(); ++i) {
    const bool slot =
        format[i] == '%' && i + 1 < format.size() && (format[i + 1] == '@' || format[i + 1] == 'd');
    if (slot && next != values.end()) {
      out.append(*next++);
      ++i;
    } else {
      out.push_back(format[i]);
    }
  }
  return out;
}

}  // namespace

CZAppleEventObject::CZAppleEventObject() : refDescriptor_(), targetApplCode_(iTunesSignature) {}

CZAppleEventObject::CZAppleEventObject(ae::Descriptor&& descriptor, OSType applCode)
    : refDescriptor_(std::move(descriptor)), targetApplCode_(applCode) {}

CZAppleEventObject::~CZAppleEventObject() = default;

const ae::Descriptor& CZAppleEventObject::descriptor() const {
  return refDescriptor_;
}

std::string CZAppleEventObject::stringForOSType(OSType code) const {
  return fourCharString(code);
}

std::string CZAppleEventObject::eventParameterStringForCountElementsOfClass(
    OSType elementClass) const {
  return fillTemplate("kocl:type(%@) , '----':@", {stringForOSType(elementClass)});
}

std::string CZAppleEventObject::eventParameterStringForDeleteElementsOfClass(
    OSType elementClass) const {
  return fillTemplate("'----':obj { form:indx, want:type(%@), seld:abso('all '), from:@ }",
                      {stringForOSType(elementClass)});
}

std::string CZAppleEventObject::eventParameterStringForElementOfClassAtIndex(OSType elementClass,
                                                                             int32_t index) const {
  return fillTemplate("'----':obj { form:indx, want:type(%@), seld:%d, from:@ }",
                      {stringForOSType(elementClass), std::to_string(index)});
}

std::string CZAppleEventObject::eventParameterStringForProperty(OSType property) const {
  return fillTemplate("'----':obj { form:prop, want:type(prop), seld:type(%@), from:@ }",
                      {stringForOSType(property)});
}

std::string CZAppleEventObject::eventParameterStringForSettingProperty(OSType property) const {
  return fillTemplate("data:@, '----':obj { form:prop, want:type(prop), seld:type(%@), from:@ }",
                      {stringForOSType(property)});
}

std::string CZAppleEventObject::eventParameterStringForSettingElementOfClassAtIndex(
    OSType elementClass, int32_t index) const {
  return fillTemplate("data:@, '----':obj { form:indx, want:type(%@), seld:%d, from:@ }",
                      {stringForOSType(elementClass), std::to_string(index)});
}

std::string CZAppleEventObject::eventParameterStringForSettingPropertyOfElementOfClassAtIndex(
    OSType property, OSType elementClass, int32_t index) const {
  return fillTemplate(
      "data:@, '----':obj { form:prop, want:type(prop), seld:type(%@), from:obj { form:indx, "
      "want:type(%@), seld:%d, from:@ }}",
      {stringForOSType(property), stringForOSType(elementClass), std::to_string(index)});
}

std::string CZAppleEventObject::eventParameterStringForTestObjectForPropertyForIntValue(
    OSType elementClass, OSType property, int32_t value) const {
  return fillTemplate(
      "obj { form:test, want:type(%@), from:@, seld:cmpd{relo:=, 'obj1': obj{ form:prop, "
      "want:type(prop), seld:type(%@), from:exmn()}, obj2:%d}}",
      {stringForOSType(elementClass), stringForOSType(property), std::to_string(value)});
}

std::string CZAppleEventObject::eventParameterStringForTestObjectForPropertyForStringValue(
    OSType elementClass, OSType property, std::string_view value) const {
  return fillTemplate(
      "obj { form:test, want:type(%@), from:@, seld:cmpd{relo:=, 'obj1': obj{ form:prop, "
      "want:type(prop), seld:type(%@), from:exmn()}, obj2:\"%@\"}}",
      {stringForOSType(elementClass), stringForOSType(property), value});
}

std::string CZAppleEventObject::eventParameterStringForTestObjectForProperty(
    OSType elementClass, OSType property) const {
  return fillTemplate(
      "obj { form:test, want:type(%@), from:@, seld:cmpd{relo:=, 'obj1': obj{ form:prop, "
      "want:type(prop), seld:type(%@), from:exmn()}, obj2:@}}",
      {stringForOSType(elementClass), stringForOSType(property)});
}

std::string CZAppleEventObject::eventParameterStringForSearchingTypeWithTest(
    OSType elementClass, std::string_view test) const {
  return fillTemplate("'----':obj { form:indx, want:type(%@), seld:'abso'('any '), from:%@ }",
                      {stringForOSType(elementClass), test});
}

std::optional<std::vector<uint8_t>> CZAppleEventObject::newAliasHandleWithPath(
    std::string_view path) {
  // Path to file reference, then the reference's file to an alias record: both steps need the
  // file to exist.
  auto reference = ae::makeFileReference(std::string(path));
  if (!reference) return std::nullopt;
  auto resolved = ae::resolveFileReference(reference->bytes);
  if (!resolved) return std::nullopt;
  auto alias = ae::makeAliasRecord(*resolved);
  if (!alias) return std::nullopt;
  return std::move(*alias);
}

}  // namespace rvitunes
