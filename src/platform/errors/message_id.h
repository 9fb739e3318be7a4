#pragma once

#include <cstddef>
#include <iterator>
#include <string_view>

/// Message identifiers that are checked while compiling: one without a text in the English catalog, or with
/// another number of arguments than the text takes, does not compile.
namespace fl::i18n {
namespace internal {

struct Message {
  std::string_view identifier;
  std::size_t arguments;
};

// The English catalog, sorted by identifier; written at build by cmake/message_table.py.
inline constexpr Message kMessages[] = {
#include "generated/message_table.inc"
};

// Not constexpr and never defined: the compiler names the one that a wrong identifier calls.
void messageHasNoTextInTheCatalog();
void messageTakesAnotherNumberOfArguments();

// Searched by hand: <algorithm> would cost every file that raises a tenth of a second more to compile.
// A binary search for the last message that is not above the identifier: it is the one asked for or none is.
consteval void checkMessage(std::string_view identifier, std::size_t arguments) {
  std::size_t first = 0, end = std::size(kMessages);
  while (end - first > 1) {
    const std::size_t middle = (first + end) / 2;
    (identifier < kMessages[middle].identifier ? end : first) = middle;
  }
  if (kMessages[first].identifier != identifier) messageHasNoTextInTheCatalog();
  if (kMessages[first].arguments != arguments) messageTakesAnotherNumberOfArguments();
}

}  // namespace internal

/// The identifier of a message that takes so many arguments: a literal, which the compiler looks up in the
/// catalog. A function that raises takes `MessageId<sizeof...(Argument)>`, one that adds two arguments of its
/// own to the caller's takes `MessageId<2 + sizeof...(Argument)>`.
template <std::size_t Arguments>
class MessageId {
 public:
  // Not explicit: raise("opc:part:NotFound", …) is how it is meant to be written.
  consteval MessageId(const char* identifier) : identifier_(identifier) {
    internal::checkMessage(identifier_, Arguments);
  }

  constexpr operator std::string_view() const noexcept { return identifier_; }

 private:
  std::string_view identifier_;
};

}  // namespace fl::i18n
