// What everything of this product's own is called by to the system.
#pragma once

namespace pellor {

/// The identifier of the library's bundle: the subsystem of its log lines, the domain of its own preferences, and the
/// beginning of the labels of its queues.
inline constexpr const char* BundleIdentifier = "org.tapnote.Pellor";

}  // namespace pellor
