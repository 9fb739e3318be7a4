#include <string>

#include <gtest/gtest.h>

#include "platform/errors/exceptions.h"

using namespace foundation::core::except;

namespace {

const collection& threeErrors() {
  static const collection errors = [] {
    collection gathered;
    gathered.add(except_with_causes("a:a:first", {u"x"}, {except_with_causes("a:a:root")}));
    gathered.add("a:a:second", u"y", 2);
    gathered.add("a:a:third");
    return gathered;
  }();
  return errors;
}

}  // namespace

TEST(Errors, ARaisedErrorKeepsIdentifierAndArguments) {
  const std::string narrow = "bad \xFF";
  try {
    raise("nowhere:of:mine", u"größe", narrow, -7, std::uint64_t{18446744073709551615u});
  } catch (const IUserException& error) {
    EXPECT_EQ(error.GetID(), "nowhere:of:mine");
    EXPECT_EQ(error.GetArguments(), (Arguments{u"größe", u"bad \xFFFD", u"-7", u"18446744073709551615"}));
    EXPECT_STREQ(error.what(), "nowhere:of:mine: größe, bad \xEF\xBF\xBD, -7, 18446744073709551615");
    return;
  }
  FAIL();
}

TEST(Errors, ACollectionBecomesItsFirstErrorWithTheOthersAsCauses) {
  const except_with_causes error = threeErrors().extract_except_with_causes();
  EXPECT_EQ(error.GetID(), "a:a:first");
  EXPECT_EQ(error.GetArguments(), Arguments{u"x"});
  ASSERT_EQ(error.causes().size(), 3u);
  EXPECT_EQ(error.causes()[0].GetID(), "a:a:root");
  EXPECT_EQ(error.causes()[1].GetArguments(), (Arguments{u"y", u"2"}));
  EXPECT_EQ(error.causes()[2].GetID(), "a:a:third");
  EXPECT_EQ(threeErrors().size(), 3u) << "the collection keeps its errors";
}

TEST(Errors, ARaisedCollectionAnswersWithItsFirstError) {
  try {
    throw threeErrors();
  } catch (const IUserException& error) {
    EXPECT_EQ(error.GetID(), "a:a:first");
    EXPECT_STREQ(error.what(), "a:a:first: x");
  }
  EXPECT_TRUE(collection::get_empty_instance().empty());
  EXPECT_EQ(collection::get_empty_instance().GetID(), "");
  EXPECT_STREQ(collection::get_empty_instance().what(), "");
}
