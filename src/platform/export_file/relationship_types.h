#pragma once

/// The relationship types through which a package reaches the parts of a recorded session.
namespace tavlox::relationship_types {

inline constexpr char16_t kRunData[] = u"ORRASessionRunDataRelType";
inline constexpr char16_t kSignalsData[] = u"ORRASessionSignalsDataRelType";
inline constexpr char16_t kCompression[] = u"ORRASessionCompressionTypeRelType";
inline constexpr char16_t kView[] = u"ORRAViewMetaDataRelType";
inline constexpr char16_t kThumbnail[] = u"TAVLOXThumbnailExistsFlagRelType";
inline constexpr char16_t kSamples[] = u"ORRASessionSamplesRelType";

}  // namespace tavlox::relationship_types
