#include "platform/arrays/host_array.h"

#include <cstdlib>
#include <functional>
#include <limits>
#include <new>

#include <gtest/gtest.h>

#include "tests/support/raised.h"

using corvan::HostArray;
using corvan::NumericClass;

namespace {

// The blocks that the test program's own operator new has given, and those that live.
std::size_t allocated = 0, alive = 0;

}  // namespace

void* operator new(std::size_t size) {
  ++allocated, ++alive;
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
  if (memory != nullptr) --alive;
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }

namespace {

constexpr std::u16string_view kNameAndSize[] = {u"Name", u"Size"};
const std::u16string kLongText(1000, u'x');

HostArray record(double size) {
  HostArray made = HostArray::structure(1, 1, kNameAndSize);
  made.setField(0, u"Name", HostArray::charRow(kLongText));
  made.setField(0, u"Size", HostArray::doubleScalar(size));
  return made;
}
double sizeIn(const HostArray& record) { return record.fieldAt(0, u"Size").scalarAsDouble(); }

HostArray doubles(std::size_t count) { return HostArray::numeric(NumericClass::Double, 1, count); }
}  // namespace

TEST(HostArray, KnowsItsClassAndShape) {
  const std::int32_t ids[] = {7, -1, 2};
  const std::pair<HostArray, std::string> cases[] = {
      {HostArray(), "double 0 0"},
      {HostArray::numeric(corvan::numericClassByName("int32"), 3, 1), "int32 3 1"},
      {HostArray::numeric(corvan::numericClassByName("uint8"), 0, 255), "uint8 0 255"},
      {HostArray::charRow(kLongText), "char 1 1000"},
  };
  for (const auto& [array, shape] : cases) {
    const HostArray copy = array;
    const std::string dimensions = std::to_string(copy.rows()) + " " + std::to_string(copy.columns());
    EXPECT_EQ(std::string(copy.className()) + " " + dimensions, shape);
  }
  EXPECT_EQ(HostArray::int32Row(ids).values<std::int32_t>()[1], -1);
}

TEST(HostArray, TextsKeepTheirCodeUnitsInPlaceOrNot) {
  for (const std::size_t length : {0, 1, 5, 6, 7, 1000}) {
    std::u16string text(length, u'\xD800');  // a lone surrogate is a code unit like any other
    if (length > 1) text[1] = u'\0';
    const std::size_t before = allocated;
    HostArray row = HostArray::charRow(text);
    EXPECT_EQ(allocated - before, length <= 6 ? 0u : 1u) << length;
    const HostArray moved = std::move(row);
    EXPECT_EQ(moved.text(), text);
    EXPECT_EQ(row.className(), "double");  // NOLINT: what a moved-from array is belongs to its contract
    EXPECT_TRUE(row.isEmpty());
  }
}

TEST(HostArray, ChangingACopyLeavesTheOriginal) {
  const HostArray numbers = doubles(100);
  HostArray copy = numbers;
  EXPECT_TRUE(copy.isCopyOf(numbers));
  EXPECT_FALSE(copy.isCopyOf(doubles(100)));
  copy.mutableValues<double>()[99] = 2;
  EXPECT_EQ(numbers.values<double>()[99], 0);
  EXPECT_FALSE(copy.isCopyOf(numbers));

  const HostArray structure = record(1);
  HostArray changed = structure, cells = HostArray::cell(1, 1);
  changed.setField(0, u"Size", HostArray::doubleScalar(2));
  EXPECT_EQ(sizeIn(changed), 2);
  EXPECT_EQ(sizeIn(structure), 1);
  EXPECT_EQ(changed.fieldAt(0, u"Name").text().data(), structure.fieldAt(0, u"Name").text().data())
      << "a field nobody changed is still shared";

  cells.setCell(0, structure);
  cells.setCell(0, cells);
  EXPECT_EQ(sizeIn(cells.cellAt(0).cellAt(0)), 1) << "what is put into itself is as it was";
}

TEST(HostArray, ABlockLivesAsLongAsItsLastArray) {
  const std::size_t before = alive;
  {
    HostArray numbers = doubles(100);
    {
      HostArray copy = numbers, moved = std::move(copy), assigned;
      assigned = moved;
      EXPECT_EQ(alive - before, 1u) << "copies share it";
      assigned.mutableValues<double>()[0] = 3;
      EXPECT_EQ(alive - before, 2u);
    }
    numbers.mutableValues<double>()[0] = 3;
    EXPECT_EQ(alive - before, 1u) << "nobody shares it any more";
  }
  EXPECT_EQ(alive, before);
}

TEST(HostArray, AskingForWhatIsNotThereIsAnError) {
  const HostArray numbers = doubles(3), cells = HostArray::cell(2, 2);
  HostArray structure = record(1);
  constexpr std::u16string_view kTwice[] = {u"A", u"B", u"A"};
  constexpr std::size_t kHuge = std::numeric_limits<std::size_t>::max();
  const std::string id = "Corvan:Arrays:", outOfMemory = foundation::core::except::bad_alloc().what();
  const std::pair<std::function<void()>, std::string> cases[] = {
      {[&] { numbers.values<float>(); }, id + "WrongClass(double, single)"},
      {[&] { numbers.text(); }, id + "WrongClass(double, char)"},
      {[&] { numbers.scalarAsDouble(); }, id + "NotScalar(1, 3)"},
      {[&] { cells.cellAt(4); }, id + "IndexOutOfRange(4, 4)"},
      {[&] { structure.setField(1, 0, numbers); }, id + "IndexOutOfRange(1, 1)"},
      {[&] { structure.fieldAt(0, u"name"); }, id + "NoSuchField(name)"},
      {[&] { HostArray::structure(1, 1, kTwice); }, id + "DuplicateField(A)"},
      {[&] { corvan::numericClassByName("int128"); }, id + "UnknownClass(int128)"},
      {[&] { HostArray::numeric(NumericClass::Double, kHuge, 2); }, outOfMemory},
  };
  for (const auto& [ask, raised] : cases) EXPECT_EQ(support::raisedBy(ask), raised);
}

TEST(HostArray, AStructureArrayCostsAFewBlocksPerField) {
  constexpr std::size_t kSignals = 100'000;
  const std::size_t before = allocated;
  HostArray signals = HostArray::structure(1, kSignals, kNameAndSize);
  corvan::TextPool texts;
  for (std::size_t signal = 0; signal < kSignals; ++signal) {
    signals.fieldValues()[signal] = texts.charRow(u"velocity [m/s]");
    signals.setField(signal, 1, HostArray::doubleScalar(1));
  }
  // 32 bytes a text: 512 of them in a block of 16 KiB.
  EXPECT_LT(allocated - before, 12u + kSignals / 500);
  const HostArray name = signals.fieldAt(kSignals - 1, u"Name");
  EXPECT_EQ(name.columns(), 14u);
  signals = HostArray();
  EXPECT_EQ(HostArray(name).text(), u"velocity [m/s]") << "kept by its block";
}

TEST(HostArray, TextsOfAPoolAreTheirsWhateverTheirLength) {
  const std::size_t before = alive;
  {
    corvan::TextPool pool;
    std::vector<HostArray> rows;
    for (std::size_t length = 0; length < 300; ++length) {
      rows.push_back(pool.charRow(std::u16string(length, static_cast<char16_t>(u'a' + length))));
    }
    for (std::size_t length = 0; length < rows.size(); ++length) {
      EXPECT_EQ(rows[length].text(), std::u16string(length, static_cast<char16_t>(u'a' + length)));
      EXPECT_EQ(rows[length].isCopyOf(rows[200]), length == 200) << length;
    }
  }
  EXPECT_EQ(alive, before);
}

TEST(HostArray, DeepNestingNeedsNoStackToGo) {
  HostArray nested;
  for (int depth = 0; depth < 500'000; ++depth) {
    HostArray outer = HostArray::cell(1, 1);
    outer.setCell(0, std::move(nested));
    nested = std::move(outer);
  }
}
