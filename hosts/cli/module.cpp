#include "hosts/cli/module.h"

#include "platform/zobs/module_loader.h"

namespace tavlox::cli {
namespace {

zobs::COSClient& client() {
  static zobs::COSClient commandLine("tavlox");
  return commandLine;
}

zobs::Value firstOf(std::vector<zobs::Value> outputs) {
  return outputs.empty() ? zobs::Value{} : std::move(outputs.front());
}

}  // namespace

zobs::COSClass& fileClass(const Request& request) {
  zobs::loadModule(request.modulePath);
  return zobs::findClass("tavlox.io.File");
}

zobs::COSInterfacePointer openFile(const Request& request, const std::u16string& path) {
  return zobs::construct(client(), fileClass(request), {path});
}

zobs::Value call(const zobs::COSInterfacePointer& object, std::string_view method,
                 std::vector<zobs::Value> inputs) {
  return firstOf(zobs::callMethod(client(), object, method, std::move(inputs)));
}

zobs::Value callFunction(const Request& request, std::string_view function, std::vector<zobs::Value> inputs) {
  zobs::loadModule(request.modulePath);
  return firstOf(zobs::callFunction(client(), std::string("tavlox.io.").append(function), std::move(inputs)));
}

}  // namespace tavlox::cli
