#pragma once

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "hosts/cli/command.h"
#include "platform/arrays/host_array.h"
#include "platform/text/json_writer.h"

/// Results on standard output: tables for people, tab-separated lines for a pipe, JSON where it was asked
/// for. Whatever cannot be written raises tavlox:cli:CannotWriteOutput with the system's reason.
namespace tavlox::cli {

/// Prints UTF-8 text as it is, after the progress line was taken away. It may stay in a buffer until
/// flushOutput.
void print(std::string_view text);

/// The document and a line end.
void print(fl::i18n::JsonWriter& json);

/// Makes sure that all of it has arrived. To be called once at the end: a failure before it may have gone
/// unseen.
void flushOutput();

/// Begins the object that commands answer with --json; its first member is "Filename", the package's absolute
/// path. The caller adds members and ends the object.
fl::i18n::JsonWriter beginAnswer(const std::u16string& package);

/// What a command did to its FILE: each path on a line of its own, escaped as the values of a table are, or
/// an object with the paths as the member's list.
void printPaths(const Request& request, std::string_view member, const std::vector<std::u16string>& paths);

/// Rows that are made when they are asked for: a long table is never held as a whole. Where columns are
/// aligned, each row is asked for twice.
struct Table {
  std::vector<std::string> headings;  ///< none for a table that needs none
  std::size_t rowCount = 0;
  std::function<std::vector<std::u16string>(std::size_t)> row;
};

/// Aligned with headings for people; tab-separated without headings for programs. Either way a row is one
/// line, whatever its values hold.
enum class TableStyle { Aligned, AlignedInColour, TabSeparated };

/// Hands over the lines in pieces of some 64 KiB.
void writeTable(const Table& table, TableStyle style, const std::function<void(std::string_view)>& write);

/// Prints it in the style that fits where standard output goes: aligned on a terminal, in colours unless
/// NO_COLOR is set, and tab-separated anywhere else.
void print(const Table& table);

/// A column of a table of records: what stands above it, and the field of the structure that it shows.
struct Column {
  std::string_view heading;
  std::u16string_view field;
};

/// Prints the elements of the module's structure arrays: a table with a row for each, or a list of objects
/// with every field, however many there are. What a program reads is written as it is added; for a terminal
/// the shown texts are kept until all of them are known, since they decide how wide the columns are.
class RecordPrinter {
 public:
  /// `lists` names the fields that are lists of any length: in JSON they are arrays also where they hold one
  /// number, which the host's arrays do not tell from a single number. Columns and lists must outlive it.
  RecordPrinter(OutputFormat format, std::span<const Column> columns,
                std::span<const std::u16string_view> lists = {});

  /// Arrays of one printer have the same fields.
  void add(const corvan::HostArray& structures);
  /// Adds lines that another printer of the same columns has made for no terminal.
  void addLines(std::string_view lines);
  /// Ends the table or the list, which must not be forgotten.
  void finish();

 private:
  /// A field as it is printed in JSON.
  struct Member {
    std::string name;  ///< with the quotes around it, the colon behind it and what stands before it
    bool isList;
    // Of the record before. Neighbours mostly have one model and one unit, and share the array that holds it.
    corvan::HostArray value;
    std::string written;  ///< name and value; empty as long as there was none
  };

  void findMembers(const corvan::HostArray& structures);
  void addObjects(const corvan::HostArray& structures);
  void addMember(Member& member, const corvan::HostArray& value);
  void addRows(const corvan::HostArray& structures);
  void printAligned();

  std::span<const Column> columns_;
  std::span<const std::u16string_view> lists_;
  bool isJson_, isForPeople_, isFirst_ = true;
  std::vector<std::size_t> fields_;  ///< of each column
  std::vector<Member> members_;
  fl::i18n::JsonWriter json_;
  std::string lines_;  ///< tab-separated, not printed yet
  std::vector<std::size_t> widths_;
};

/// The same for one array.
void printRecords(OutputFormat format, const corvan::HostArray& structures, std::span<const Column> columns,
                  std::span<const std::u16string_view> lists = {});

}  // namespace tavlox::cli
