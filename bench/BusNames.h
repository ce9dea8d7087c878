// What the bus is asked and answers when its speed is measured.
#pragma once

namespace pellor::bench {

inline constexpr const char* Ping = "org.tapnote.bench.ping";
inline constexpr const char* Pong = "org.tapnote.bench.pong";

}  // namespace pellor::bench
