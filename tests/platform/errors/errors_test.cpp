#include <gtest/gtest.h>

#include "platform/errors/exceptions.h"
#include "tests/support/raised.h"

using namespace foundation::core::except;

TEST(Errors, ARaisedErrorKeepsIdentifierAndArguments) {
  EXPECT_EQ(support::raisedBy([&] { raise("sqldb:ssdb:Failed", "bad \xFF", ~std::uint64_t{0}); }),
            "sqldb:ssdb:Failed(bad \xEF\xBF\xBD, 18446744073709551615)");
}

TEST(Errors, ARaisedCollectionAnswersWithItsFirstErrorAndBecomesOneWithTheOthersAsCauses) {
  collection errors;
  errors.add(except_with_causes("a:a:first", {u"x"}, {except_with_causes("a:a:root")}));
  errors.add("sqldb:ssdb:Locked", u"y", 2);
  try {
    throw errors;
  } catch (const IUserException& error) {
    EXPECT_EQ(error.GetID(), "a:a:first");
    EXPECT_STREQ(error.what(), "a:a:first: x");
  }
  const except_with_causes error = errors.extract_except_with_causes();
  EXPECT_EQ(support::describe(error), "a:a:first(x)");
  ASSERT_EQ(error.causes().size(), 2u);
  EXPECT_EQ(error.causes()[0].GetID(), "a:a:root");
  EXPECT_EQ(support::describe(error.causes()[1]), "sqldb:ssdb:Locked(y, 2)");
  EXPECT_STREQ(collection::get_empty_instance().what(), "");
}
