// The names of the program and its commands.
#pragma once

namespace varnholt::app {

inline constexpr const char* kProgramName = "genetic-search";
inline constexpr const char* kRunName = "run";
inline constexpr const char* kCheckName = "check-prices";
inline constexpr const char* kSignalsName = "signals";
inline constexpr const char* kShowName = "show";
inline constexpr const char* kExportName = "export";
inline constexpr const char* kWeightsName = "weights";
inline constexpr const char* kPortfolioName = "portfolio";
inline constexpr const char* kEvalName = "eval";
inline constexpr const char* kDoctorName = "doctor";
inline constexpr const char* kAttemptsName = "attempts";
inline constexpr const char* kReplayName = "replay";
inline constexpr const char* kVocabularyName = "vocabulary";

}  // namespace varnholt::app
