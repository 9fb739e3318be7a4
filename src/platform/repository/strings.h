#pragma once

/// Member names of the session's JSON parts.
namespace orra::strings {

inline constexpr char IDLower[] = "id";
inline constexpr char RunClassName[] = "runClassName";

// Keys of a run's metadata.
inline constexpr char Description[] = "Description";
inline constexpr char Tag[] = "Tag";
inline constexpr char BrinVersion[] = "BrinVersion";
inline constexpr char ModelVersion[] = "ModelVersion";
inline constexpr char UserID[] = "UserID";
inline constexpr char MachineName[] = "MachineName";
inline constexpr char Platform[] = "Platform";
inline constexpr char TaskName[] = "TaskName";
inline constexpr char SolverType[] = "SolverType";
inline constexpr char SolverName[] = "SolverName";
inline constexpr char SolverMaxStepSize[] = "SolverMaxStepSize";
inline constexpr char StopEventSource[] = "StopEventSource";
inline constexpr char StopEventDescription[] = "StopEventDescription";
inline constexpr char ExecutionErrors[] = "ExecutionErrors";
inline constexpr char ExecutionWarnings[] = "ExecutionWarnings";
inline constexpr char UserString[] = "UserString";

}  // namespace orra::strings
