#include "hosts/python/index.h"

#include <memory>
#include <optional>

#include "hosts/python/calls.h"
#include "hosts/python/values.h"
#include "platform/session_index/found_records.h"
#include "platform/session_index/index_update.h"
#include "platform/text/conversion.h"

namespace tavlox::python {
namespace {

using session_index::IndexUpdate;
using session_index::SessionIndex;

/// An update that Python does step by step, so that it can be interrupted in between.
class Update {
 public:
  Update(const py::list& folders, const py::str& index, std::size_t jobs)
      : update_(inTurn([folders = toTexts(folders), index = toText(index), jobs] {
          return std::make_unique<IndexUpdate>(folders, index, jobs == 0 ? corvan::coreCount() : jobs);
        })) {}
  ~Update() { close(); }

  bool step() {
    return inTurn([&] { return update_->step(); });
  }

  py::tuple counts() const {
    const IndexUpdate::Counts& counts = update_->counts();
    return py::make_tuple(counts.added, counts.changed, counts.unchanged, counts.removed, counts.unreadable);
  }

  py::list problems() const {
    const auto texts = inTurn([&] {
      std::vector<std::u16string> told;
      for (const auto& problem : update_->problems())
        told.push_back(fl::i18n::to_ustring_lossy(problem.GetMessageTxt()));
      return told;
    });
    py::list all;
    for (const std::u16string& text : texts) all.append(toPython(text));
    return all;
  }

  /// Ends the processes that are at work, and closes the index.
  void close() {
    if (!update_) return;
    const py::gil_scoped_release released;
    const Turn turn;
    update_.reset();
  }

 private:
  std::unique_ptr<IndexUpdate> update_;
};

Structure searchIndex(const py::str& path, const py::str& words, const py::str& subject,
                      const py::str& where) {
  const SharedValue found =
      inTurn([path = toText(path), words = toText(words), name = toText(subject), where = toText(where)] {
        const session_index::Subject kind = session_index::subjectOf(name);
        std::optional<filter::Filter> condition;
        if (!where.empty()) condition.emplace(where, session_index::fieldsOf(kind));
        session_index::FoundRecords records(kind);
        SessionIndex(path, SessionIndex::Access::Read)
            .search(kind, words, condition ? &*condition : nullptr,
                    [&](std::span<const session_index::Cell> cells) { records.add(cells); });
        return share(records.take());
      });
  return Structure(SharedArray(found, &std::get<corvan::HostArray>(*found)));
}

}  // namespace

void addIndex(py::module_& host) {
  py::class_<Update>(host, "IndexUpdate")
      .def(py::init<const py::list&, const py::str&, std::size_t>())
      .def("step", &Update::step)
      .def("counts", &Update::counts)
      .def("problems", &Update::problems)
      .def("close", &Update::close);
  host.def("search_index", &searchIndex);
}

}  // namespace tavlox::python
