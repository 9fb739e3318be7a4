#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/samples/recorded_session.h"
#include "tests/support/session_fixture.h"

namespace support {

/// A session with one run for each table (CSV). Each column behind the time is a signal, named s1, s2, … and
/// of the data type given.
inline tavlox::samples::RecordedSession sessionOf(const SessionFixture& files, std::string_view name,
                                                  const std::vector<std::string>& tables,
                                                  const char16_t* dataType = u"double") {
  return tavlox::samples::RecordedSession(files.write(name, [&](tavlox::SessionWriter& session) {
    std::int32_t run = 0, signal = 0;
    for (const std::string& table : tables) {
      session.addRun({.id = ++run});
      const std::string heading = table.substr(0, table.find_first_of("\r\n"));
      for (const char byte : heading) {
        if (byte != ',') continue;
        const std::u16string signalName{u's', static_cast<char16_t>(u'1' + signal++ % 9)};
        session.addSignal({.id = signal, .runID = run, .name = signalName, .dataTypeLabel = dataType});
      }
      signal = 0;
      session.addSamples(run, [&](const auto& sink) { sink(table); });
    }
  }));
}

}  // namespace support
