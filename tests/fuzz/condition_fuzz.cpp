// Conditions that people write: understood or refused, never more.

#include <algorithm>
#include <string>

#include "platform/errors/exceptions.h"
#include "platform/filter/filter.h"
#include "platform/text/conversion.h"
#include "tests/fuzz/target.h"
#include "tests/support/raised.h"

/// A condition that is understood has a value bound for each place in its SQL, and holds or does not.
void condition(std::string_view bytes) {
  using namespace tavlox::filter;
  static constexpr Field kFields[] = {{u"T", Kind::Text}, {u"N", Kind::Number}};
  const std::string error = support::raisedBy([&] {
    const Filter filter(fl::i18n::to_ustring_lossy(bytes), kFields);
    const std::string columns[] = {"t", "n"};
    const Filter::Sql sql = filter.sql(columns);
    fuzz::require(std::ranges::count(sql.condition, '?') == static_cast<std::ptrdiff_t>(sql.values.size()));
    static_cast<void>(
        filter.matches([](std::size_t field) { return field == 0 ? Value(u"a") : Value(1.0); }));
  });
  fuzz::require(error.empty() || error.starts_with("filter:where:"));
}
