// Any bytes as a run list and as a signals part: they are loaded, or refused with the one error that says
// why, and a walk over the rows that were kept sees what the load saw.

#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

#include "platform/errors/exceptions.h"
#include "platform/repository/json_rows.h"
#include "platform/repository/obj_ref_array_json.h"

namespace {

void load(const orra::PartKind& kind, const std::string& json) {
  orra::ObjRefArrayJSON array(kind, orra::ObjRefArrayJSON::Keep::Rows);
  std::istringstream stream(json);
  try {
    array.load(stream);
  } catch (const foundation::core::except::IUserException& error) {
    if (error.GetID() != "simulation_data_repository:sdr:InvalidSessionData") std::abort();
    return;
  }
  std::size_t rows = 0;
  array.forEachRow([&rows](std::size_t, const orra::Row&) { ++rows; });
  if (rows != array.size()) std::abort();
}

}  // namespace

void sessionJson(std::string_view bytes) {
  const std::string json(bytes);
  load(orra::kRunListKind, json);
  load(orra::kSignalsPartKind, json);
}
