// The names of events in a batch record.
#pragma once

namespace runlet_tool {

inline constexpr char eventKey[] = "event";

inline constexpr char sessionEvent[] = "session";
inline constexpr char planEvent[] = "plan";  // of the session before it
inline constexpr char startEvent[] = "start";
inline constexpr char endEvent[] = "end";
inline constexpr char stopEvent[] = "stop";  // of the session

}  // namespace runlet_tool
