#include "platform/arrays/host_array.h"

#include <array>
#include <functional>
#include <limits>
#include <new>
#include <thread>

#include <gtest/gtest.h>

#include "counting_allocator.h"
#include "tests/support/raised.h"

using corvan::ArrayKind;
using corvan::HostArray;
using corvan::NumericClass;
using support::raisedBy;

namespace {

constexpr std::array<std::u16string_view, 2> kNameAndSize{u"Name", u"Size"};

const std::u16string kLongText(1000, u'x');

HostArray record(std::u16string_view name, double size) {
  HostArray made = HostArray::structure(1, 1, kNameAndSize);
  made.setField(0, u"Name", HostArray::charRow(name));
  made.setField(0, u"Size", HostArray::doubleScalar(size));
  return made;
}

HostArray doubles(std::size_t count) { return HostArray::numeric(NumericClass::Double, 1, count); }

}  // namespace

TEST(HostArray, KnowsItsClassAndShape) {
  const std::array<std::int32_t, 3> ids{7, -1, 2};
  struct Case {
    HostArray array;
    std::string_view className;
    std::size_t rows, columns;
  };
  const Case cases[] = {
      {HostArray(), "double", 0, 0},
      {HostArray::int32Scalar(-5), "int32", 1, 1},
      {HostArray::int32Row(ids), "int32", 1, 3},
      {HostArray::int32Column(ids), "int32", 3, 1},
      {HostArray::int32Column({}), "int32", 0, 1},
      {HostArray::numeric(NumericClass::UInt8, 0, 254), "uint8", 0, 254},
      {HostArray::numeric(NumericClass::UInt8, 0, 255), "uint8", 0, 255},  // empty, but too wide for one byte
      {HostArray::numeric(NumericClass::UInt8, 255, 0), "uint8", 255, 0},
      {HostArray::numeric(NumericClass::Single, 4, 5), "single", 4, 5},
      {HostArray::logicalScalar(true), "logical", 1, 1},
      {HostArray::charRow(u""), "char", 1, 0},
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
    EXPECT_EQ(copy.isEmpty(), one.rows * one.columns == 0);
  }
  EXPECT_EQ(HostArray::int32Row(ids).values<std::int32_t>()[1], -1);
  EXPECT_EQ(HostArray::structure(1, 0, kNameAndSize).fieldNames()[1], u"Size");
}

TEST(HostArray, EveryNumericClassStartsAtZeroAndKeepsItsExtremes) {
  const auto check = []<class T>(std::string_view name, T) {
    SCOPED_TRACE(name);
    HostArray array = HostArray::numeric(corvan::numericClassByName(name), 3, 20);
    for (const T value : array.values<T>()) EXPECT_EQ(value, T{});
    array.mutableValues<T>().back() = std::numeric_limits<T>::max();
    EXPECT_EQ(array.values<T>()[59], std::numeric_limits<T>::max());
    HostArray scalar = HostArray::numeric(corvan::numericClassByName(name), 1, 1);
    scalar.mutableValues<T>()[0] = std::numeric_limits<T>::lowest();
    EXPECT_EQ(scalar.scalarAsDouble(), static_cast<double>(std::numeric_limits<T>::lowest()));
    EXPECT_EQ(scalar.className(), name);
  };
  check("double", double{});
  check("single", float{});
  check("int8", std::int8_t{});
  check("int16", std::int16_t{});
  check("int32", std::int32_t{});
  check("int64", std::int64_t{});
  check("uint8", std::uint8_t{});
  check("uint16", std::uint16_t{});
  check("uint32", std::uint32_t{});
  check("uint64", std::uint64_t{});
}

TEST(HostArray, TextsKeepTheirCodeUnitsInPlaceOrNot) {
  for (const std::size_t length : {0, 1, 13, 14, 15, 1000}) {
    std::u16string text(length, u'\xD800');  // a lone surrogate is a code unit like any other
    if (length > 1) text[1] = u'\0';
    const std::size_t before = counting_allocator::blocks();
    HostArray row = HostArray::charRow(text);
    EXPECT_EQ(counting_allocator::blocks() - before, length <= 14 ? 0u : 1u) << length;
    const HostArray moved = std::move(row);
    EXPECT_EQ(moved.text(), text);
    EXPECT_EQ(row.className(), "double");  // NOLINT: what a moved-from array is belongs to its contract
    EXPECT_TRUE(row.isEmpty());
  }
}

TEST(HostArray, ChangingACopyLeavesTheOriginal) {
  HostArray number = HostArray::doubleScalar(1);
  HostArray numbers = doubles(100);
  HostArray cells = HostArray::cell(1, 2);
  HostArray structure = record(kLongText, 1);
  cells.setCell(0, structure);

  HostArray copy = number;
  copy.mutableValues<double>()[0] = 2;
  EXPECT_EQ(number.scalarAsDouble(), 1);
  copy = numbers;
  copy.mutableValues<double>()[99] = 2;
  EXPECT_EQ(numbers.values<double>()[99], 0);
  EXPECT_EQ(copy.values<double>()[99], 2);

  HostArray inner = cells.cellAt(0);
  inner.setField(0, u"Size", HostArray::doubleScalar(2));
  EXPECT_EQ(cells.cellAt(0).fieldAt(0, u"Size").scalarAsDouble(), 1);
  copy = cells;
  copy.setCell(0, inner);
  EXPECT_EQ(copy.cellAt(0).fieldAt(0, u"Size").scalarAsDouble(), 2);
  EXPECT_EQ(cells.cellAt(0).fieldAt(0, u"Size").scalarAsDouble(), 1);
  EXPECT_EQ(structure.fieldAt(0, u"Size").scalarAsDouble(), 1);
  EXPECT_EQ(copy.cellAt(0).fieldAt(0, u"Name").text().data(), structure.fieldAt(0, u"Name").text().data())
      << "a field nobody changed is still shared";
}

TEST(HostArray, AnArrayPutIntoItselfHoldsWhatItWas) {
  HostArray cells = HostArray::cell(1, 1);
  cells.setCell(0, cells);
  EXPECT_EQ(cells.cellAt(0).cellAt(0).className(), "double");
}

TEST(HostArray, OnlyASharedArrayIsCopiedForWriting) {
  HostArray numbers = doubles(100);
  {
    const HostArray copy = numbers;
    EXPECT_NE(static_cast<const void*>(numbers.mutableValues<double>().data()), copy.values<double>().data());
  }
  const std::size_t before = counting_allocator::blocks();
  numbers.mutableValues<double>()[0] = 3;
  EXPECT_EQ(counting_allocator::blocks(), before);
}

TEST(HostArray, AskingForWhatIsNotThereIsAnError) {
  const HostArray numbers = doubles(3);
  const HostArray structure = record(u"a", 1);
  const HostArray cells = HostArray::cell(2, 2);
  HostArray changed = structure, changedCells = cells, logical = HostArray::logicalScalar(true);
  constexpr std::array<std::u16string_view, 3> kTwice{u"A", u"B", u"A"};
  struct Case {
    std::function<void()> ask;
    std::string raised;
  };
  const Case cases[] = {
      {[&] { numbers.values<float>(); }, "Corvan:Arrays:WrongClass(double, single)"},
      {[&] { numbers.values<bool>(); }, "Corvan:Arrays:WrongClass(double, logical)"},
      {[&] { logical.mutableValues<std::uint8_t>(); }, "Corvan:Arrays:WrongClass(logical, uint8)"},
      {[&] { static_cast<void>(logical.numericClass()); }, "Corvan:Arrays:WrongClass(logical, numeric)"},
      {[&] { numbers.text(); }, "Corvan:Arrays:WrongClass(double, char)"},
      {[&] { numbers.cellAt(0); }, "Corvan:Arrays:WrongClass(double, cell)"},
      {[&] { cells.fieldNames(); }, "Corvan:Arrays:WrongClass(cell, struct)"},
      {[&] { changed.setCell(0, numbers); }, "Corvan:Arrays:WrongClass(struct, cell)"},
      {[&] { numbers.scalarAsDouble(); }, "Corvan:Arrays:NotScalar(1, 3)"},
      {[&] { HostArray::cell(1, 1).scalarAsDouble(); }, "Corvan:Arrays:WrongClass(cell, numeric)"},
      {[&] { cells.cellAt(4); }, "Corvan:Arrays:IndexOutOfRange(4, 4)"},
      {[&] { changedCells.setCell(4, numbers); }, "Corvan:Arrays:IndexOutOfRange(4, 4)"},
      {[&] { structure.fieldAt(1, u"Name"); }, "Corvan:Arrays:IndexOutOfRange(1, 1)"},
      {[&] { changed.setField(1, 0, numbers); }, "Corvan:Arrays:IndexOutOfRange(1, 1)"},
      {[&] { structure.fieldAt(0, u"name"); }, "Corvan:Arrays:NoSuchField(name)"},
      {[&] { changed.setField(0, 2, numbers); }, "Corvan:Arrays:NoSuchField(2)"},
      {[&] { HostArray::structure(1, 1, kTwice); }, "Corvan:Arrays:DuplicateField(A)"},
      {[&] { corvan::numericClassByName("int128"); }, "Corvan:Arrays:UnknownClass(int128)"},
  };
  for (const Case& one : cases) EXPECT_EQ(raisedBy(one.ask), one.raised);
}

TEST(HostArray, SizesThatNoMemoryHoldsAreOutOfMemory) {
  constexpr std::size_t kHuge = std::numeric_limits<std::size_t>::max();
  EXPECT_THROW(HostArray::numeric(NumericClass::Double, kHuge, 2), std::bad_alloc);
  EXPECT_THROW(HostArray::numeric(NumericClass::Double, kHuge / 8 + 2, 1), std::bad_alloc);
  EXPECT_THROW(HostArray::cell(kHuge / 16, 1), std::bad_alloc);
  EXPECT_THROW(HostArray::structure(kHuge, 1, kNameAndSize), std::bad_alloc);
}

TEST(HostArray, AStructureArrayCostsAFewBlocksPerField) {
  std::vector<std::u16string> names;
  for (int field = 0; field < 19; ++field)
    names.push_back(u"Field" + std::u16string(1, static_cast<char16_t>(u'A' + field)));
  const std::vector<std::u16string_view> views(names.begin(), names.end());
  constexpr std::size_t kSignals = 100'000;

  const std::size_t before = counting_allocator::blocks();
  HostArray signals = HostArray::structure(1, kSignals, views);
  for (std::size_t signal = 0; signal < kSignals; ++signal) {
    for (std::size_t field = 0; field < 19; ++field) {
      signals.setField(signal, field,
                       field % 2 == 0 ? HostArray::charRow(u"velocity [m/s]") : HostArray::doubleScalar(1));
    }
  }
  EXPECT_LT(counting_allocator::blocks() - before, 100u);
  EXPECT_EQ(signals.fieldAt(kSignals - 1, u"FieldS").text(), u"velocity [m/s]");
}

TEST(HostArray, DeepNestingNeedsNoStackToGo) {
  HostArray nested;
  for (int depth = 0; depth < 500'000; ++depth) {
    HostArray outer = HostArray::cell(1, 1);
    outer.setCell(0, std::move(nested));
    nested = std::move(outer);
  }
  EXPECT_EQ(nested.className(), "cell");
}

TEST(HostArray, OutOfMemoryWhileWritingLeavesBothCopies) {
  const std::function<void(HostArray&)> changes[] = {
      [](HostArray& array) { array.setField(0, u"Size", HostArray::doubleScalar(9)); },
      [](HostArray& array) { array.setField(0, u"Size", HostArray::charRow(kLongText)); },
  };
  for (const auto& change : changes) {
    int failures = 0;
    for (;; ++failures) {
      const HostArray original = record(kLongText, 1);
      HostArray copy = original;
      try {
        const counting_allocator::FailAfter failing(static_cast<std::size_t>(failures));
        change(copy);
        break;
      } catch (const std::bad_alloc&) {
        EXPECT_EQ(original.fieldAt(0, u"Size").scalarAsDouble(), 1);
        EXPECT_EQ(copy.fieldAt(0, u"Size").scalarAsDouble(), 1);
        EXPECT_EQ(copy.fieldAt(0, u"Name").text(), kLongText);
      }
    }
    EXPECT_GE(failures, 2) << "the block and its columns";
  }
}

TEST(HostArray, CopiesMayBeDroppedByAnotherThread) {
  HostArray shared = doubles(100);
  const void* const data = shared.values<double>().data();
  {
    const HostArray mine = shared, others = shared;
    const auto copyOften = [](const HostArray& array) {
      for (int i = 0; i < 300'000; ++i) const HostArray another = array;
    };
    std::thread other(copyOften, std::cref(others));
    copyOften(mine);
    other.join();
  }
  EXPECT_EQ(static_cast<const void*>(shared.mutableValues<double>().data()), data)
      << "a lost count would make the array look shared, or have freed it";
}
