#pragma once

#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "metadata/metadata_cache.h"
#include "platform/zobs/method_info.h"

namespace orra::tavloxio {

/// What the methods and functions of the module have in common: a name and a signature. Each adds its invoke
/// operation.
class ORRATavloxIOZOBSMethodInfo : public zobs::COSMethodInfo {
 public:
  ORRATavloxIOZOBSMethodInfo();

  const zobs::Interned* getName() const override { return name_ ? &name_ : nullptr; }
  const zobs::COSMethodSignature& getSignature() const override { return *signature_; }

  void setName(std::string_view name);
  zobs::COSMethodSignature& signature() { return *signature_; }

 private:
  zobs::Interned name_;
  std::unique_ptr<zobs::COSMethodSignature> signature_;
};

/// The host's names of the types that the module's signatures use.
inline constexpr char kFileType[] = "tavlox.io.File";
inline constexpr char kTextType[] = "unicodeString";
inline constexpr char kAnyType[] = "any";

using TypeNames = std::initializer_list<std::string_view>;

/// A new info of class `Info`, for the host to own.
template <class Info>
Info* makeMethodInfo(std::string_view name, TypeNames inputs, TypeNames outputs,
                     std::optional<std::size_t> optionalInputs = std::nullopt) {
  auto info = std::make_unique<Info>();
  info->setName(name);
  for (const std::string_view type : inputs)
    info->signature().addInputType(zobs::internal::makeInterned(type));
  for (const std::string_view type : outputs)
    info->signature().addOutputType(zobs::internal::makeInterned(type));
  if (optionalInputs) info->signature().setOptionalInputCount(*optionalInputs);
  return info.release();
}

/// The instance data of the File object that a method was called on.
MetadataCache& metadataCacheOf(const zobs::Value& object);

/// The UTF-16 text that a "unicodeString" input arrived as.
const std::u16string& textOf(const zobs::Value& input);

}  // namespace orra::tavloxio
