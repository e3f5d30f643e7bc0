#include "rvitunes/player/Specifier.h"

#include <cstring>

#include "rvitunes/ae/Coercion.h"

namespace rvitunes::player {

namespace {

bool isCodeType(ae::DescType type) {
  return type == ae::typeType || type == ae::typeEnumerated || type == ae::typeKeyword ||
         type == ae::typeProperty || type == ae::typeAbsoluteOrdinal;
}

template <class T>
T scalar(const ae::Descriptor& desc) {
  T value;
  std::memcpy(&value, desc.data().data(), sizeof value);
  return value;
}

// A short text for one key datum in a description.
std::string describeKey(OSType form, const ae::Descriptor& seld) {
  if (form == ae::formPropertyID) {
    if (auto code = codeOf(seld)) return fourCharString(*code);
  }
  if (auto code = codeOf(seld); code && seld.type() == ae::typeAbsoluteOrdinal) {
    return fourCharString(*code);
  }
  if (form == ae::formTest) return "whose ...";
  if (form == ae::formRange) return "range";
  if (auto n = integerOf(seld); n && seld.type() != ae::typeChar &&
                                seld.type() != ae::typeUnicodeText &&
                                seld.type() != ae::typeUTF8Text) {
    return std::to_string(*n);
  }
  if (auto text = textOf(seld)) return "\"" + *text + "\"";
  return "?";
}

}  // namespace

std::optional<OSType> codeOf(const ae::Descriptor& desc) {
  if (desc.kind() != ae::DescKind::kSimple || !isCodeType(desc.type()) ||
      desc.dataSize() != sizeof(OSType)) {
    return std::nullopt;
  }
  return scalar<OSType>(desc);
}

std::optional<int64_t> integerOf(const ae::Descriptor& desc) {
  if (desc.kind() != ae::DescKind::kSimple) return std::nullopt;
  const size_t size = desc.dataSize();
  switch (desc.type()) {
    case ae::typeSInt16:
      if (size == 2) return scalar<int16_t>(desc);
      return std::nullopt;
    case ae::typeUInt16:
      if (size == 2) return scalar<uint16_t>(desc);
      return std::nullopt;
    case ae::typeSInt32:
      if (size == 4) return scalar<int32_t>(desc);
      return std::nullopt;
    case ae::typeUInt32:
      if (size == 4) return scalar<uint32_t>(desc);
      return std::nullopt;
    case ae::typeSInt64:
      if (size == 8) return scalar<int64_t>(desc);
      return std::nullopt;
    case ae::typeUInt64:
      // Persistent IDs travel as 64-bit patterns: the unsigned form keeps its bits.
      if (size == 8) return static_cast<int64_t>(scalar<uint64_t>(desc));
      return std::nullopt;
    default:
      break;
  }
  if (isCodeType(desc.type())) return std::nullopt;
  auto value = ae::integerValue(desc);
  if (!value) return std::nullopt;
  return *value;
}

std::optional<std::string> textOf(const ae::Descriptor& desc) {
  if (desc.kind() != ae::DescKind::kSimple) return std::nullopt;
  auto text = ae::textValue(desc);
  if (!text) return std::nullopt;
  return std::move(text).value();
}

Result<ObjectSpecifier> readObjectSpecifier(const ae::Descriptor& desc) {
  if (!desc.isRecord() || desc.type() != ae::typeObjectSpecifier) {
    return Status::error(errAENotAnObjSpec, "not an object specifier");
  }
  const ae::Descriptor* want = desc.findParam(ae::keyAEDesiredClass);
  const ae::Descriptor* form = desc.findParam(ae::keyAEKeyForm);
  const ae::Descriptor* seld = desc.findParam(ae::keyAEKeyData);
  if (want == nullptr || form == nullptr || seld == nullptr) {
    return Status::error(errAEDescNotFound, "the object specifier lacks want, form or seld");
  }
  auto wantCode = codeOf(*want);
  auto formCode = codeOf(*form);
  if (!wantCode || !formCode) {
    return Status::error(errAEWrongDataType, "want or form of the object specifier is no code");
  }
  const ae::Descriptor* from = desc.findParam(ae::keyAEContainer);
  return ObjectSpecifier{*wantCode, *formCode, seld,
                         from != nullptr ? from : &ae::nullDescriptor()};
}

ae::Descriptor makeObjectSpecifier(OSType desiredClass, OSType keyForm, ae::Descriptor keyData,
                                   ae::Descriptor container) {
  ae::Descriptor record = ae::Descriptor::makeRecord(ae::typeObjectSpecifier);
  record.putParamDesc(ae::keyAEDesiredClass, ae::Descriptor::makeType(desiredClass));
  record.putParamDesc(ae::keyAEKeyForm, ae::Descriptor::makeEnum(keyForm));
  record.putParamDesc(ae::keyAEKeyData, std::move(keyData));
  record.putParamDesc(ae::keyAEContainer, std::move(container));
  return record;
}

ae::Descriptor makeUniqueIDSpecifier(OSType desiredClass, int32_t id, ae::Descriptor container) {
  return makeObjectSpecifier(desiredClass, ae::formUniqueID, ae::Descriptor::makeSInt32(id),
                             std::move(container));
}

ae::Descriptor makeIndexSpecifier(OSType desiredClass, int32_t index, ae::Descriptor container) {
  return makeObjectSpecifier(desiredClass, ae::formAbsolutePosition,
                             ae::Descriptor::makeSInt32(index), std::move(container));
}

ae::Descriptor makePropertySpecifier(OSType property, ae::Descriptor container) {
  return makeObjectSpecifier(ae::cProperty, ae::formPropertyID, ae::Descriptor::makeType(property),
                             std::move(container));
}

std::string describeSpecifier(const ae::Descriptor& desc) {
  std::string text;
  const ae::Descriptor* current = &desc;
  for (int depth = 0; depth < 16; ++depth) {
    if (current->isNull()) {
      text += "application";
      return text;
    }
    if (current->type() == ae::typeObjectBeingExamined) {
      text += "the examined object";
      return text;
    }
    auto parsed = readObjectSpecifier(*current);
    if (!parsed) break;
    if (parsed->keyForm == ae::formPropertyID) {
      text += describeKey(parsed->keyForm, *parsed->keyData);
    } else if (parsed->keyForm == ae::formUniqueID) {
      text += fourCharString(parsed->desiredClass) + " id " +
              describeKey(parsed->keyForm, *parsed->keyData);
    } else {
      text += fourCharString(parsed->desiredClass) + " " +
              describeKey(parsed->keyForm, *parsed->keyData);
    }
    text += " of ";
    current = parsed->container;
  }
  text += "object";
  return text;
}

}  // namespace rvitunes::player
