#include "platform/arrays/host_array.h"

#include <cstdlib>
#include <functional>
#include <limits>
#include <new>

#include <gtest/gtest.h>

#include "tests/support/raised.h"

using corvan::HostArray;
using corvan::NumericClass;
using support::raisedBy;

namespace {

// The test program's own operator new counts blocks, and lets the allocation of one number fail.
std::size_t allocated = 0, alive = 0, failAt = 0;

}  // namespace

void* operator new(std::size_t size) {
  void* const memory = ++allocated == failAt ? nullptr : std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  ++alive;
  return memory;
}
void operator delete(void* memory) noexcept {
  if (memory != nullptr) --alive;
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept { operator delete(memory); }

namespace {

constexpr std::u16string_view kNameAndSize[] = {u"Name", u"Size"};
const std::u16string kLongText(1000, u'x');

HostArray record(std::u16string_view name, double size) {
  HostArray made = HostArray::structure(1, 1, kNameAndSize);
  made.setField(0, u"Name", HostArray::charRow(name));
  made.setField(0, u"Size", HostArray::doubleScalar(size));
  return made;
}

double sizeIn(const HostArray& record) { return record.fieldAt(0, u"Size").scalarAsDouble(); }

HostArray doubles(std::size_t count) { return HostArray::numeric(NumericClass::Double, 1, count); }

}  // namespace

TEST(HostArray, KnowsItsClassAndShape) {
  const std::int32_t ids[] = {7, -1, 2};
  struct Case {
    HostArray array;
    std::string_view className;
    std::size_t rows, columns;
  };
  const Case cases[] = {
      {HostArray(), "double", 0, 0},
      {HostArray::int32Row(ids), "int32", 1, 3},
      {HostArray::int32Column(ids), "int32", 3, 1},
      {HostArray::int32Column({}), "int32", 0, 1},
      {HostArray::numeric(corvan::numericClassByName("uint8"), 0, 254), "uint8", 0, 254},
      {HostArray::numeric(NumericClass::UInt8, 0, 255), "uint8", 0, 255},  // empty, but too wide for one byte
      {HostArray::numeric(NumericClass::Single, 4, 5), "single", 4, 5},
      {HostArray::logicalScalar(true), "logical", 1, 1},
      {HostArray::charRow(kLongText), "char", 1, 1000},
      {HostArray::cell(1, 0), "cell", 1, 0},
      {HostArray::structure(1, 0, kNameAndSize), "struct", 1, 0},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(testing::Message() << one.rows << " by " << one.columns << " " << one.className);
    const HostArray copy = one.array;
    EXPECT_EQ(copy.className(), one.className);
    EXPECT_EQ(copy.rows(), one.rows);
    EXPECT_EQ(copy.columns(), one.columns);
  }
  EXPECT_EQ(HostArray::int32Row(ids).values<std::int32_t>()[1], -1);
  EXPECT_EQ(HostArray::int32Scalar(-5).scalarAsDouble(), -5);
  EXPECT_EQ(HostArray::numeric(NumericClass::UInt16, 3, 20).values<std::uint16_t>()[59], 0);
  EXPECT_EQ(HostArray::structure(1, 0, kNameAndSize).fieldNames()[1], u"Size");
}

TEST(HostArray, TextsKeepTheirCodeUnitsInPlaceOrNot) {
  for (const std::size_t length : {0, 1, 13, 14, 15, 1000}) {
    std::u16string text(length, u'\xD800');  // a lone surrogate is a code unit like any other
    if (length > 1) text[1] = u'\0';
    const std::size_t before = allocated;
    HostArray row = HostArray::charRow(text);
    EXPECT_EQ(allocated - before, length <= 14 ? 0u : 1u) << length;
    const HostArray moved = std::move(row);
    EXPECT_EQ(moved.text(), text);
    EXPECT_EQ(row.className(), "double");  // NOLINT: what a moved-from array is belongs to its contract
    EXPECT_TRUE(row.isEmpty());
  }
}

TEST(HostArray, ChangingACopyLeavesTheOriginal) {
  const HostArray numbers = doubles(100);
  HostArray copy = numbers;
  copy.mutableValues<double>()[99] = 2;
  EXPECT_EQ(numbers.values<double>()[99], 0);
  EXPECT_EQ(copy.values<double>()[99], 2);

  const HostArray structure = record(kLongText, 1);
  HostArray cells = HostArray::cell(1, 2);
  cells.setCell(0, structure);
  HostArray inner = cells.cellAt(0);
  inner.setField(0, u"Size", HostArray::doubleScalar(2));
  copy = cells;
  copy.setCell(0, inner);
  EXPECT_EQ(sizeIn(copy.cellAt(0)), 2);
  EXPECT_EQ(sizeIn(cells.cellAt(0)), 1);
  EXPECT_EQ(sizeIn(structure), 1);
  EXPECT_EQ(copy.cellAt(0).fieldAt(0, u"Name").text().data(), structure.fieldAt(0, u"Name").text().data())
      << "a field nobody changed is still shared";

  cells.setCell(1, cells);
  EXPECT_EQ(cells.cellAt(1).cellAt(1).className(), "double") << "what is put into itself is as it was";
}

TEST(HostArray, ABlockLivesAsLongAsItsLastArray) {
  const std::size_t before = alive;
  {
    HostArray numbers = doubles(100);
    {
      HostArray copy = numbers, moved = std::move(copy), assigned;
      assigned = moved;
      EXPECT_EQ(alive - before, 1u) << "copies share it";
    }
    EXPECT_EQ(alive - before, 1u);
    numbers.mutableValues<double>()[0] = 3;
    EXPECT_EQ(alive - before, 1u) << "nobody shares it any more, so it is written to where it is";
    HostArray cells = HostArray::cell(1, 1);
    cells.setCell(0, numbers);
  }
  EXPECT_EQ(alive, before);
}

TEST(HostArray, AskingForWhatIsNotThereIsAnError) {
  const HostArray numbers = doubles(3), cells = HostArray::cell(2, 2);
  HostArray structure = record(u"a", 1), logical = HostArray::logicalScalar(true);
  constexpr std::u16string_view kTwice[] = {u"A", u"B", u"A"};
  const std::pair<std::function<void()>, std::string> cases[] = {
      {[&] { numbers.values<float>(); }, "Corvan:Arrays:WrongClass(double, single)"},
      {[&] { numbers.values<bool>(); }, "Corvan:Arrays:WrongClass(double, logical)"},
      {[&] { logical.mutableValues<std::uint8_t>(); }, "Corvan:Arrays:WrongClass(logical, uint8)"},
      {[&] { static_cast<void>(logical.numericClass()); }, "Corvan:Arrays:WrongClass(logical, numeric)"},
      {[&] { numbers.text(); }, "Corvan:Arrays:WrongClass(double, char)"},
      {[&] { numbers.cellAt(0); }, "Corvan:Arrays:WrongClass(double, cell)"},
      {[&] { structure.setCell(0, numbers); }, "Corvan:Arrays:WrongClass(struct, cell)"},
      {[&] { numbers.scalarAsDouble(); }, "Corvan:Arrays:NotScalar(1, 3)"},
      {[&] { HostArray::cell(1, 1).scalarAsDouble(); }, "Corvan:Arrays:WrongClass(cell, numeric)"},
      {[&] { cells.cellAt(4); }, "Corvan:Arrays:IndexOutOfRange(4, 4)"},
      {[&] { structure.setField(1, 0, numbers); }, "Corvan:Arrays:IndexOutOfRange(1, 1)"},
      {[&] { structure.fieldAt(0, u"name"); }, "Corvan:Arrays:NoSuchField(name)"},
      {[&] { structure.setField(0, 2, numbers); }, "Corvan:Arrays:NoSuchField(2)"},
      {[&] { HostArray::structure(1, 1, kTwice); }, "Corvan:Arrays:DuplicateField(A)"},
      {[&] { corvan::numericClassByName("int128"); }, "Corvan:Arrays:UnknownClass(int128)"},
  };
  for (const auto& [ask, raised] : cases) EXPECT_EQ(raisedBy(ask), raised);
}

TEST(HostArray, SizesThatNoMemoryHoldsAreOutOfMemory) {
  constexpr std::size_t kHuge = std::numeric_limits<std::size_t>::max();
  EXPECT_THROW(HostArray::numeric(NumericClass::Double, kHuge, 2), std::bad_alloc);
  EXPECT_THROW(HostArray::numeric(NumericClass::Double, kHuge / 8 + 2, 1), std::bad_alloc);
  EXPECT_THROW(HostArray::cell(kHuge / 16, 1), std::bad_alloc);
  EXPECT_THROW(HostArray::structure(kHuge, 1, kNameAndSize), std::bad_alloc);
}

TEST(HostArray, AStructureArrayCostsAFewBlocksPerField) {
  constexpr std::size_t kSignals = 100'000;
  const std::size_t before = allocated;
  HostArray signals = HostArray::structure(1, kSignals, kNameAndSize);
  for (std::size_t signal = 0; signal < kSignals; ++signal) {
    signals.setField(signal, 0, HostArray::charRow(u"velocity [m/s]"));
    signals.setField(signal, 1, HostArray::doubleScalar(1));
  }
  EXPECT_LT(allocated - before, 12u);
  EXPECT_EQ(signals.fieldAt(kSignals - 1, u"Name").text(), u"velocity [m/s]");
}

TEST(HostArray, DeepNestingNeedsNoStackToGo) {
  HostArray nested;
  for (int depth = 0; depth < 500'000; ++depth) {
    HostArray outer = HostArray::cell(1, 1);
    outer.setCell(0, std::move(nested));
    nested = std::move(outer);
  }
}

TEST(HostArray, OutOfMemoryWhileWritingLeavesBothCopies) {
  int failures = 0;
  for (bool isDone = false; !isDone; ++failures) {
    const HostArray original = record(kLongText, 1);
    HostArray copy = original;
    try {
      failAt = allocated + static_cast<std::size_t>(failures) + 1;
      copy.setField(0, u"Size", HostArray::charRow(kLongText));
      isDone = true;
    } catch (const std::bad_alloc&) {
      EXPECT_EQ(sizeIn(original), 1);
      EXPECT_EQ(sizeIn(copy), 1);
      EXPECT_EQ(copy.fieldAt(0, u"Name").text(), kLongText);
    }
    failAt = 0;
  }
  EXPECT_GT(failures, 3) << "the text, the block, its columns";
}
