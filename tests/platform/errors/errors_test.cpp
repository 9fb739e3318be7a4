#include <gtest/gtest.h>

#include "platform/errors/exceptions.h"
#include "tests/support/raised.h"

using namespace foundation::core::except;

TEST(Errors, ARaisedErrorKeepsIdentifierAndArguments) {
  const std::string narrow = "bad \xFF";
  EXPECT_EQ(
      support::raisedBy([&] {
        raise("simulation_data_repository:sdr:InvalidSessionData", u"größe", narrow,
              std::uint64_t{18446744073709551615u});
      }),
      "simulation_data_repository:sdr:InvalidSessionData(größe, bad \xEF\xBF\xBD, 18446744073709551615)");
}

TEST(Errors, ARaisedCollectionAnswersWithItsFirstErrorAndBecomesOneWithTheOthersAsCauses) {
  collection errors;
  errors.add(except_with_causes("a:a:first", {u"x"}, {except_with_causes("a:a:root")}));
  errors.add("sqldb:ssdb:Locked", u"y", 2);
  errors.add(except_with_causes("a:a:third"));
  try {
    throw errors;
  } catch (const IUserException& error) {
    EXPECT_EQ(error.GetID(), "a:a:first");
    EXPECT_STREQ(error.what(), "a:a:first: x");
  }
  const except_with_causes error = errors.extract_except_with_causes();
  EXPECT_EQ(support::describe(error), "a:a:first(x)");
  ASSERT_EQ(error.causes().size(), 3u);
  EXPECT_EQ(error.causes()[0].GetID(), "a:a:root");
  EXPECT_EQ(support::describe(error.causes()[1]), "sqldb:ssdb:Locked(y, 2)");
  EXPECT_EQ(error.causes()[2].GetID(), "a:a:third");
  EXPECT_EQ(errors.size(), 3u) << "the collection keeps its errors";
}

TEST(Errors, ACollectionWithoutErrorsHasAnEmptyText) {
  EXPECT_TRUE(collection::get_empty_instance().empty());
  EXPECT_EQ(collection::get_empty_instance().GetID(), "");
  EXPECT_STREQ(collection::get_empty_instance().what(), "");
}
