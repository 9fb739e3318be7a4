// catalog_probe IDENTIFIER ARGUMENT… prints the catalog text. It is copied into the installation under test.

#include <cstdio>

#include "platform/errors/catalog.h"
#include "platform/text/conversion.h"

int main(int count, char** words) {
  std::vector<std::u16string> arguments;
  for (int i = 2; i < count; ++i) arguments.push_back(fl::i18n::to_ustring(words[i]));
  std::fputs(fl::i18n::to_string(fl::i18n::catalogText(words[1], arguments)).c_str(), stdout);
}
