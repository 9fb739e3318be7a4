#include "platform/opc/xml_reader.h"

#include <exception>
#include <memory>
#include <string>
#include <vector>

#include <expat.h>

#include "platform/errors/free_with.h"
#include "platform/errors/package_errors.h"
#include "platform/opc/percent_encoding.h"
#include "platform/opc/xml_plain.h"
#include "platform/text/conversion.h"

namespace opc::xml {
namespace {

// No XML document can contain it, so it tells namespace, local name and prefix apart without a doubt.
constexpr char kSeparator = '\x1F';
// The parser counts in int; and it keeps an unfinished token of one piece together with the next.
constexpr std::size_t kPieceBytes = std::size_t{64} << 20;

using Parser = std::unique_ptr<XML_ParserStruct, foundation::core::except::FreeWith<XML_ParserFree>>;

/// Takes apart what the parser hands out: a local name, or namespace and local name, or these and the
/// prefix.
Name split(const char* joined) {
  const std::string_view text(joined);
  const std::size_t first = text.find(kSeparator);
  if (first == std::string_view::npos) return {{}, text, {}};
  const std::size_t second = text.find(kSeparator, first + 1);
  if (second == std::string_view::npos) return {text.substr(0, first), text.substr(first + 1), {}};
  return {text.substr(0, first), text.substr(first + 1, second - first - 1), text.substr(second + 1)};
}

/// The two that the conventions allow (ECMA-376 part 2), the second in both byte orders.
enum class Encoding { Utf8, Utf16LittleEndian, Utf16BigEndian };

/// By the byte-order mark, or by where the zero byte of the first character stands.
Encoding encodingOf(std::string_view bytes) {
  if (bytes.size() < 2) return Encoding::Utf8;
  const std::string_view head = bytes.substr(0, 2);
  if (head == "\xFF\xFE" || (head[0] != 0 && head[1] == 0)) return Encoding::Utf16LittleEndian;
  if (head == "\xFE\xFF" || (head[0] == 0 && head[1] != 0)) return Encoding::Utf16BigEndian;
  return Encoding::Utf8;
}

/// UTF-16 bytes as UTF-8, without the byte-order mark. The parser could read UTF-16 itself, but would then
/// count bytes of another text than the one that the handler was given.
std::string transcode(std::string_view bytes, Encoding encoding, const Location& location) {
  const std::size_t low = encoding == Encoding::Utf16LittleEndian ? 0 : 1;
  std::u16string text(bytes.size() / 2, u'\0');
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto least = static_cast<unsigned char>(bytes[2 * i + low]);
    const auto most = static_cast<unsigned char>(bytes[2 * i + 1 - low]);
    text[i] = static_cast<char16_t>(most << 8 | least);
  }
  if (bytes.size() % 2 != 0 || !fl::i18n::is_well_formed(text)) {
    refuse("opc:xml:IllFormedUtf16", location.package, location.part);
  }
  if (!text.empty() && text[0] == u'\uFEFF') text.erase(0, 1);
  return fl::i18n::to_string(text);
}

/// One document on its way through the parser. What a callback raises is kept, the parser stopped, and it is
/// raised again once the parser has returned.
class Reading {
 public:
  Reading(const Location& location, int depthLimit, Encoding encoding, Handler& handler)
      : location_(location), depthLimit_(depthLimit), encoding_(encoding), handler_(handler) {
    // The encoding is settled before the parser sees a byte, so that it cannot choose another by the
    // declaration.
    parser_.reset(XML_ParserCreateNS("UTF-8", kSeparator));
    if (!parser_) throw std::bad_alloc();
    XML_SetUserData(parser_.get(), this);
    // With prefixes, because what is added to a document is spelled as the rest of it.
    XML_SetReturnNSTriplet(parser_.get(), XML_TRUE);
    XML_SetXmlDeclHandler(parser_.get(), onXmlDeclaration);
    XML_SetStartDoctypeDeclHandler(parser_.get(), onDoctype);
    XML_SetStartNamespaceDeclHandler(parser_.get(), onNamespace);
    XML_SetElementHandler(parser_.get(), onStart, onEnd);
    XML_SetCharacterDataHandler(parser_.get(), onText);
  }

  /// Takes up a document of which `read` was reported: its opening, and items that the parser need not see.
  void resume(const PlainList& read, std::size_t offset) {
    if (read.opening().empty()) return;
    isResuming_ = true;
    parse(read.opening(), XML_FALSE);
    isResuming_ = false;
    skippedBytes_ = offset - read.opening().size();
    skippedLines_ = read.linesRead();
  }

  void read(Window& window) {
    // An empty document goes to the parser too, which then says what is missing.
    for (bool isLast = false; !isLast;) {
      const std::string_view piece = window.rest().substr(0, kPieceBytes);
      isLast = piece.size() == window.rest().size() && window.isAtEnd();
      parse(piece, isLast ? XML_TRUE : XML_FALSE);
      window.take(piece.size());
      if (window.rest().empty()) window.grow();
    }
  }

 private:
  void parse(std::string_view piece, XML_Bool isLast) {
    const XML_Status status = XML_Parse(parser_.get(), piece.data(), static_cast<int>(piece.size()), isLast);
    // First, since the parser that was stopped reports an error of its own.
    if (raised_) std::rethrow_exception(raised_);
    if (status != XML_STATUS_OK) refuseMalformed();
  }

  [[noreturn]] void refuseMalformed() const {
    const XML_Error error = XML_GetErrorCode(parser_.get());
    // Not the document's fault.
    if (error == XML_ERROR_NO_MEMORY) throw std::bad_alloc();
    refuse("opc:xml:Malformed", location_.package, location_.part,
           XML_GetCurrentLineNumber(parser_.get()) + skippedLines_, XML_ErrorString(error));
  }

  /// Where the tag that is being reported stands.
  Span tag() const {
    const auto begin = skippedBytes_ + static_cast<std::size_t>(XML_GetCurrentByteIndex(parser_.get()));
    return {begin, begin + static_cast<std::size_t>(XML_GetCurrentByteCount(parser_.get()))};
  }

  /// Does what a callback is for. No exception may pass through the parser, which is written in C.
  template <class Work>
  static void guard(void* self, Work work) noexcept {
    auto& reading = *static_cast<Reading*>(self);
    // A stopped parser may still report the end of an empty element.
    if (reading.raised_) return;
    try {
      work(reading);
    } catch (...) {
      reading.raised_ = std::current_exception();
      XML_StopParser(reading.parser_.get(), XML_FALSE);
    }
  }

  static void onXmlDeclaration(void* self, const char*, const char* encoding, int) {
    guard(self, [=](Reading& reading) {
      if (encoding != nullptr) reading.checkDeclared(encoding);
    });
  }
  /// Entities are declared there, and a few of them can make gigabytes of a small document.
  static void onDoctype(void* self, const char*, const char*, const char*, int) {
    guard(self, [](Reading& reading) {
      refuse("opc:xml:DocumentTypeDeclaration", reading.location_.package, reading.location_.part);
    });
  }
  static void onNamespace(void* self, const char* prefix, const char* space) {
    guard(self, [=](Reading& reading) {
      if (reading.isResuming_) return;
      reading.handler_.declare(prefix == nullptr ? "" : prefix, space == nullptr ? "" : space);
    });
  }
  static void onStart(void* self, const char* name, const char** attributes) {
    guard(self, [=](Reading& reading) {
      // The parser keeps something for every open element.
      if (++reading.depth_ > reading.depthLimit_) {
        refuse("opc:xml:TooDeep", reading.location_.package, reading.location_.part, reading.depthLimit_);
      }
      if (reading.isResuming_) return;
      reading.attributes_.clear();
      for (const char** pair = attributes; *pair != nullptr; pair += 2) {
        const Name its = split(pair[0]);
        reading.attributes_.push_back({its.space, its.local, pair[1]});
      }
      reading.handler_.start(split(name), Attributes(reading.attributes_), reading.tag());
    });
  }
  static void onEnd(void* self, const char*) {
    guard(self, [](Reading& reading) {
      --reading.depth_;
      reading.handler_.end(reading.tag());
    });
  }
  static void onText(void* self, const char* piece, int length) {
    guard(self, [=](Reading& reading) { reading.handler_.text({piece, static_cast<std::size_t>(length)}); });
  }

  void checkDeclared(std::string_view declared) const {
    // Names of encodings have no letter case (XML 1.0, 4.3.3).
    const std::string name = percent::toLower(declared);
    const bool isUtf8 = encoding_ == Encoding::Utf8;
    const char* exact = encoding_ == Encoding::Utf16LittleEndian ? "utf-16le" : "utf-16be";
    if (isUtf8 ? name == "utf-8" : name == "utf-16" || name == exact) return;
    refuse("opc:xml:UnknownEncoding", location_.package, location_.part, declared);
  }

  const Location location_;
  const int depthLimit_;
  const Encoding encoding_;
  Handler& handler_;
  int depth_ = 0;
  std::vector<Attribute> attributes_;
  // Whether the handler knows already what the parser is shown.
  bool isResuming_ = false;
  // What the parser was not shown.
  std::size_t skippedBytes_ = 0;
  XML_Size skippedLines_ = 0;
  std::exception_ptr raised_;
  Parser parser_;
};

enum class Reader { QuickWherePossible, ParserAlone };

/// A document that is in UTF-8 now, whatever it was in.
void read(Window& window, const Location& location, int depthLimit, Encoding encoding, Handler& handler,
          Reader reader) {
  PlainList plain(window, handler);
  // A list is two elements deep. What was UTF-16 must not declare anything else, which the parser looks at.
  const bool mayBePlain =
      reader == Reader::QuickWherePossible && depthLimit >= 2 && encoding == Encoding::Utf8;
  if (mayBePlain && plain.read()) return;
  Reading reading(location, depthLimit, encoding, handler);
  reading.resume(plain, window.offset());
  reading.read(window);
}

void readWhole(std::string_view bytes, const Location& location, int depthLimit, Handler& handler,
               Reader reader) {
  const Encoding encoding = encodingOf(bytes);
  std::string narrow;
  if (encoding != Encoding::Utf8) {
    narrow = transcode(bytes, encoding, location);
    bytes = narrow;
  }
  // Spans count in these bytes.
  handler.begin(bytes);
  Window window(bytes);
  read(window, location, depthLimit, encoding, handler, reader);
}

}  // namespace

Handler::~Handler() = default;
void Handler::begin(std::string_view) {}
void Handler::declare(std::string_view, std::string_view) {}

void read(std::string_view bytes, const Location& location, int depthLimit, Handler& handler) {
  readWhole(bytes, location, depthLimit, handler, Reader::QuickWherePossible);
}

void readByParser(std::string_view bytes, const Location& location, int depthLimit, Handler& handler) {
  readWhole(bytes, location, depthLimit, handler, Reader::ParserAlone);
}

void read(const Source& source, const Location& location, int depthLimit, Handler& handler) {
  Window window(source);
  // A source may give its first byte alone.
  while (window.rest().size() < 2 && window.grow()) {
  }
  const Encoding encoding = encodingOf(window.rest());
  if (encoding == Encoding::Utf8) {
    return read(window, location, depthLimit, encoding, handler, Reader::QuickWherePossible);
  }
  // Rare enough to be read as a whole.
  std::string bytes(window.rest());
  for (window.take(bytes.size()); window.grow(); window.take(window.rest().size())) bytes += window.rest();
  const std::string narrow = transcode(bytes, encoding, location);
  Window whole{std::string_view(narrow)};
  read(whole, location, depthLimit, encoding, handler, Reader::ParserAlone);
}

}  // namespace opc::xml
