#pragma once

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "metadata/metadata_cache_impl.h"
#include "queries/run_record.h"
#include "queries/signal_record.h"
#include "tests/support/raised.h"
#include "tests/support/session_fixture.h"

/// Queries on one session file.
class Queries : public ::testing::Test {
 protected:
  Queries() { setenv("TMPDIR", databases_.path().c_str(), 1); }
  ~Queries() override { unsetenv("TMPDIR"); }

  void bind(const support::SessionFixture::Fill& fill) {
    cache_.setFilename(sessions_.write("s.tavlox", fill));
  }
  /// Writes the file anew, so that the next query sees the change.
  void rewrite(const support::SessionFixture::Fill& fill) {
    sessions_.write("s.tavlox", fill);
    sessions_.touch("s.tavlox", std::chrono::seconds(++rewritten_));
  }

  corvan::HostArray run(std::int32_t identifier) {
    return orra::tavloxio::runRecord(cache_, orra::FileRunId{identifier});
  }
  corvan::HostArray allSignals() {
    return orra::tavloxio::signalRecords([&] { return cache_.lookupAllSignals(); });
  }
  corvan::HostArray signalsNamed(const std::u16string& name) {
    return orra::tavloxio::signalRecords([&] { return cache_.lookupSignalsByName(name); });
  }

  /// What `action` raises, and behind it how often half a second passed until then: "…() 2".
  template <class Action>
  static std::string raisedAfterPauses(const Action& action) {
    const auto start = std::chrono::steady_clock::now();
    const std::string raised = support::raisedBy(action);
    const auto waited = std::chrono::steady_clock::now() - start;
    return raised + " " + std::to_string(waited / std::chrono::milliseconds(500));
  }

  std::set<std::string> databases() const {
    std::set<std::string> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(databases_.path())) {
      if (entry.is_regular_file()) found.insert(entry.path().string());
    }
    return found;
  }

  support::SessionFixture sessions_;
  orra::tavloxio::MetadataCacheImpl cache_;

 private:
  support::TemporaryFolder databases_;
  int rewritten_ = 0;
};

/// The fields of the element at `index`, as "name=value|": texts as they are, each int32 followed by a blank,
/// doubles with six decimals.
inline std::string describeRecord(const corvan::HostArray& records, std::size_t index) {
  std::string text;
  for (std::size_t field = 0; field < records.fieldNames().size(); ++field) {
    const corvan::HostArray& value = records.fieldAt(index, field);
    text += fl::i18n::to_string(records.fieldNames()[field]) + "=";
    if (value.kind() == corvan::ArrayKind::Char) {
      text += fl::i18n::to_string(value.text());
    } else if (value.numericClass() == corvan::NumericClass::Int32) {
      for (const std::int32_t number : value.values<std::int32_t>()) text += std::to_string(number) + " ";
    } else {
      text += std::to_string(value.scalarAsDouble());
    }
    text += "|";
  }
  return text;
}
