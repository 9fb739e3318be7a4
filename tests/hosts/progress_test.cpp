#include "hosts/cli/progress.h"

#include <gtest/gtest.h>

namespace {

using tavlox::cli::progressLine;

TEST(Progress, FitsTheTerminalWhateverIsReported) {
  struct {
    corvan::Progress progress;
    std::size_t width;
    const char* line;
  } const cases[] = {
      {{u"Loading signals", 25, 100}, 79, "Loading signals  [#####...............]  25 %"},
      {{u"Loading signals", 100, 100}, 79, "Loading signals  [####################] 100 %"},
      {{u"Loading signals", 300, 100},
       79,
       "Loading signals  [####################] 100 %"},  // grew meanwhile
      {{u"Loading signals", 25, 0}, 79, "Loading signals ..."},
      {{u"Reading a long name.csv", 0, 9}, 41, "Reading a l  [....................]   0 %"},
      {{u"Reading a long name.csv", 0, 9}, 20, "Reading a long name."},
      {{u"Gr\u00F6\u00DFe", 0, 0}, 3, "Gr\xC3\xB6"},  // cut between characters, not in one
      {{u"a\x1b[2Jb", 0, 0}, 79, "a\\u001B[2Jb ..."},
      {{u"Reading", 0, 0}, 0, ""},
  };
  for (const auto& expected : cases)
    EXPECT_EQ(progressLine(expected.progress, expected.width), expected.line);
}

}  // namespace
