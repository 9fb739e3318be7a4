#include "platform/text/text_index.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

TEST(TextIndex, FindsWhatIsThere) {
  std::vector<std::string> names;
  const auto nameAt = [&](std::size_t index) -> std::string_view { return names[index]; };
  fl::i18n::TextIndex byName;
  for (int i = 0; i < 5000; ++i) {
    names.push_back("part" + std::to_string(i));
    ASSERT_TRUE(byName.add(names.size() - 1, nameAt));
  }
  names.push_back("part7");
  EXPECT_FALSE(byName.add(5000, nameAt));
  byName.remove("part8", nameAt);
  EXPECT_EQ(byName.size(), 4999U);

  EXPECT_EQ(byName.find("part7", nameAt), 7U);
  EXPECT_EQ(byName.find("part8", nameAt), std::nullopt);
}
