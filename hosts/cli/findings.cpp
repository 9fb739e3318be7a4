#include "hosts/cli/findings.h"

#include <algorithm>

#include <fmt/format.h>

#include "hosts/cli/output.h"
#include "platform/text/conversion.h"

namespace tavlox::cli {

using fl::i18n::to_ustring_lossy;
using recovery::Finding;
using recovery::Severity;

namespace {

std::string_view severityOf(const Finding& finding, std::string_view error) {
  return finding.severity == Severity::Error ? error : "note";
}

}  // namespace

bool hasErrors(const recovery::Findings& findings) {
  return std::ranges::find(findings, Severity::Error, &Finding::severity) != findings.end();
}

void printFindings(const recovery::Findings& findings, std::string_view error) {
  // Messages are made row by row: the findings of a badly damaged package may be very many.
  print(Table{{"", "Item", "Byte", "Finding", "Rule"}, findings.size(), [&](std::size_t i) {
                const Finding& finding = findings[i];
                const std::string offset = finding.offset ? fmt::format("{}", *finding.offset) : "";
                return std::vector{to_ustring_lossy(severityOf(finding, error)), finding.item,
                                   to_ustring_lossy(offset), to_ustring_lossy(finding.rule.GetMessageTxt()),
                                   to_ustring_lossy(finding.rule.GetID())};
              }});
}

void writeFindings(fl::i18n::JsonWriter& json, const recovery::Findings& findings, std::string_view error) {
  json.member("Findings").beginArray();
  for (const Finding& finding : findings) {
    json.beginObject().member("Severity").value(severityOf(finding, error));
    json.member("Item").value(finding.item);
    // Left out where it is not known; 0 would be a valid offset.
    if (finding.offset) json.member("Offset").value(*finding.offset);
    json.member("Rule").value(finding.rule.GetID());
    json.member("Message").value(finding.rule.GetMessageTxt()).endObject();
  }
  json.endArray();
}

}  // namespace tavlox::cli
