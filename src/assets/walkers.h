#pragma once

#include <functional>
#include <set>
#include <string>

#include "package/scoped_ref.h"
#include "platform/errors/exceptions.h"
#include "platform/opc/package.h"

/// How entries of a package are selected: by walking its package-level relationships. What is done with each
/// is the visitor's business; its errors leave the walk at once.
namespace orra::tavloxio::part {

using foundation::core::except::collection;
using RelationshipVisitor = std::function<void(opc::model::Package&, const opc::model::Relationship&)>;

/// Visits every relationship, of any type, whose target is `name` or lies in the folder `name`, in the
/// package's order.
/// "/" selects all. Nothing happens if `name` is no absolute path. Adds tavlox_io:general:EntryDoesNotExist,
/// with the name, if nothing matched.
void forEachPartUnderPath(const file::ScopedRef& ref, const std::u16string& name,
                          const RelationshipVisitor& visit, collection& errors);

/// Visits every relationship whose target's file name is `name` and whose target begins with `folder`: user
/// files only if the folder is the user folder, otherwise relationships of every type. Nothing happens if
/// `name` has a folder part. Adds tavlox_io:general:EntryDoesNotExist, with the name, if nothing matched.
void forEachPartByFileName(const file::ScopedRef& ref, const std::u16string& name,
                           const RelationshipVisitor& visit, collection& errors,
                           const std::u16string& folder);

/// Raises what was gathered as one error with causes, unless its identifier is among those to let pass.
void raiseGatheredErrors(const collection& errors, const std::set<std::string>& identifiersToLetPass);

/// Deletes a relationship, and the part it leads to if there is one.
void removeUserEntry(opc::model::Package& package, const opc::model::Relationship& link);

}  // namespace orra::tavloxio::part
