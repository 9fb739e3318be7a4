#include "hosts/cli/error_report.h"

#include <gtest/gtest.h>

namespace {

using foundation::core::except::except_with_causes;

const except_with_causes kBroken("tavlox:general:UnableToReadFile", {u"a\tb.tavlox"},
                                 {except_with_causes("nowhere:one:First", {u"x"},
                                                     {except_with_causes("nowhere:two:Second")})});

TEST(ErrorReport, SaysTheCausesInOrderEachOnALineOfItsOwn) {
  EXPECT_EQ(tavlox::cli::errorAsText(kBroken),
            "tavlox: error: The file \"a\\tb.tavlox\" cannot be read. It must be a sound TAVLOX package that "
            "you may "
            "read. [tavlox:general:UnableToReadFile]\n"
            "  because: nowhere:one:First: x [nowhere:one:First]\n"
            "  because: nowhere:two:Second [nowhere:two:Second]\n");
}

TEST(ErrorReport, IsOneJsonObjectForOtherPrograms) {
  EXPECT_EQ(
      tavlox::cli::errorAsJson(kBroken),
      R"({"error":{"identifier":"tavlox:general:UnableToReadFile","arguments":["a\u0009b.tavlox"],)"
      R"("message":"The file \"a\u0009b.tavlox\" cannot be read. It must be a sound TAVLOX package that you )"
      R"(may read.","causes":[{"identifier":"nowhere:one:First","arguments":["x"],)"
      R"("message":"nowhere:one:First: x","causes":[{"identifier":"nowhere:two:Second","arguments":[],)"
      R"("message":"nowhere:two:Second"}]}]}})"
      "\n");
}

TEST(ErrorReport, EndsWithTheHint) {
  const except_with_causes error("nowhere:one:First", {u"x"});
  EXPECT_EQ(tavlox::cli::errorAsText(error, u"look\nhere"),
            "tavlox: error: nowhere:one:First: x [nowhere:one:First]\n  hint: look\\nhere\n");
}

}  // namespace
