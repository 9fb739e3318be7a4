#pragma once

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <iosfwd>
#include <string_view>

#include "platform/repository/records.h"

namespace orra {

/// Reads the elements of a run list or of a signals part as records, in their order, without a database: for
/// who goes through all of them once. Each is valid during the call. Raises what ObjRefArrayJSON::load raises
/// for a part that is not valid, which may be after some of its elements were visited. If some fields are
/// named, only those are filled in, which is faster; all are checked.
using FieldNames = std::initializer_list<std::string_view>;
void forEachRun(std::istream& runList, const std::function<void(const RunRecord&)>& visit,
                FieldNames only = {});
void forEachSignal(std::istream& signalsPart, const std::function<void(const SignalRecord&)>& visit,
                   FieldNames only = {});

/// As the two above, but go on behind an element that is not valid: everything that loading the part would
/// raise as simulation_data_repository:sdr:InvalidSessionData is handed to `tell`, and what the visitor
/// raises as that too. Elements count from 1.
void auditRuns(std::istream& runList, const std::function<void(std::size_t element, const RunRecord&)>& visit,
               const FaultVisitor& tell, FieldNames only = {});
void auditSignals(std::istream& signalsPart,
                  const std::function<void(std::size_t element, const SignalRecord&)>& visit,
                  const FaultVisitor& tell, FieldNames only = {});

}  // namespace orra
