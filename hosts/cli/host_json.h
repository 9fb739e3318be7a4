#pragma once

#include <string>

#include "platform/text/json_writer.h"
#include "platform/zobs/object.h"

/// Host values as other programs and people read them.
namespace tavlox::cli {

/// Writes a host value as JSON: a 1×1 structure array is an object, another a list of objects; a char row is
/// a string, a numeric or logical scalar a plain value, a row or column a list, a larger array a list of its
/// rows; cells are a list. Numbers that JSON cannot carry (NaN, infinities) and values without a JSON form
/// (objects) are null.
void writeJson(fl::i18n::JsonWriter& json, const corvan::HostArray& array);
void writeJson(fl::i18n::JsonWriter& json, const zobs::Value& value);

/// What a table shows of a value: a text as it is, nothing for null, anything else as its JSON.
std::u16string cellText(const zobs::Value& value);
std::u16string cellText(const corvan::HostArray& array);

}  // namespace tavlox::cli
