#include "fileclass/query_methods.h"

#include "queries/run_record.h"
#include "queries/signal_record.h"

namespace orra::tavloxio {

using corvan::HostArray;

void TavloxIOFileGetAllRunIDs::invoke(zobs::COSClient&, int* producedOutputs, zobs::Value* outputs, int,
                                      std::span<const zobs::Value> inputs) {
  outputs[0] = runIdentifierColumn(metadataCacheOf(inputs[0]));
  *producedOutputs = 1;
}

void TavloxIOFileGetRunInfo::invoke(zobs::COSClient&, int* producedOutputs, zobs::Value* outputs, int,
                                    std::span<const zobs::Value> inputs) {
  const std::int32_t run = toRunIdentifier(std::get<HostArray>(inputs[1]));
  outputs[0] = runRecord(metadataCacheOf(inputs[0]), run);
  *producedOutputs = 1;
}

void TavloxIOFileGetAllSignalsInfo::invoke(zobs::COSClient&, int* producedOutputs, zobs::Value* outputs, int,
                                           std::span<const zobs::Value> inputs) {
  MetadataCache& cache = metadataCacheOf(inputs[0]);
  outputs[0] = signalRecords([&] { return cache.lookupAllSignals(); });
  *producedOutputs = 1;
}

void TavloxIOFileGetSignalInfoByName::invoke(zobs::COSClient&, int* producedOutputs, zobs::Value* outputs,
                                             int, std::span<const zobs::Value> inputs) {
  MetadataCache& cache = metadataCacheOf(inputs[0]);
  outputs[0] = signalRecords([&] { return cache.lookupSignalsByName(textOf(inputs[1])); });
  *producedOutputs = 1;
}

}  // namespace orra::tavloxio
