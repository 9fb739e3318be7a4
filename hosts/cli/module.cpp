#include "hosts/cli/module.h"

#include "platform/zobs/module_loader.h"

namespace tavlox::cli {
namespace {

/// On whose behalf the object system is called. Objects and classes are found by name: this program is linked
/// with nothing of the module.
zobs::COSClient& client() {
  static zobs::COSClient commandLine("tavlox");
  return commandLine;
}

/// Methods give a list of outputs; the module's have one or none.
zobs::Value firstOf(std::vector<zobs::Value> outputs) {
  return outputs.empty() ? zobs::Value{} : std::move(outputs.front());
}

}  // namespace

zobs::COSClass& fileClass(const Request& request) {
  // Loading it again is cheap and registers nothing twice.
  zobs::loadModule(request.modulePath);
  return zobs::findClass("tavlox.io.File");
}

zobs::COSInterfacePointer openFile(const Request& request, const std::u16string& path) {
  return zobs::construct(client(), fileClass(request), {path});
}

zobs::Value call(const zobs::COSInterfacePointer& file, std::string_view method,
                 std::vector<zobs::Value> inputs) {
  return firstOf(zobs::callMethod(client(), file, method, std::move(inputs)));
}

zobs::Value callFunction(const Request& request, std::string_view function, std::vector<zobs::Value> inputs) {
  zobs::loadModule(request.modulePath);
  return firstOf(zobs::callFunction(client(), std::string("tavlox.io.").append(function), std::move(inputs)));
}

corvan::HostArray callForArray(const zobs::COSInterfacePointer& file, std::string_view method,
                               std::vector<zobs::Value> inputs) {
  return std::get<corvan::HostArray>(call(file, method, std::move(inputs)));
}

std::vector<std::u16string> listedPaths(const zobs::COSInterfacePointer& file, const std::u16string& search) {
  const corvan::HostArray entries = callForArray(file, "list", {search});
  std::vector<std::u16string> paths;
  for (std::size_t i = 0; i < entries.elementCount(); ++i)
    paths.emplace_back(entries.fieldAt(i, u"FullPath").text());
  return paths;
}

std::vector<std::u16string> namesOf(const zobs::COSInterfacePointer& file, std::u16string_view search) {
  const corvan::HostArray entries = callForArray(file, "list", {std::u16string(u"/")});
  std::vector<std::u16string> names;
  for (std::size_t i = 0; i < entries.elementCount(); ++i)
    names.emplace_back(entries.fieldAt(i, search.starts_with(u'/') ? u"FullPath" : u"Name").text());
  return names;
}

}  // namespace tavlox::cli
