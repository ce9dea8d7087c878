// The library's own bundle, log channel and version.
#pragma once

#include <memory>
#include <string_view>

#include "pellor/platform/LocalizedStrings.h"
#include "pellor/runtime/BundleIdentifier.h"
#include "pellor/runtime/Log.h"

namespace pellor {

/// The vendor's reverse-DNS prefix, and the identifiers that begin with it.
inline constexpr std::string_view PLVendorPrefix = "org.tapnote";
inline constexpr std::string_view PLBundleIdentifier = BundleIdentifier;
inline constexpr std::string_view PLPersonMetadataQueueLabel = "org.tapnote.Pellor.PLPerson.metadata";

/// The version, as symbols of the built library. The text stands in every program that is linked with it, behind the
/// mark "@(#)" by which tools find it.
extern const char PellorVersionString[];
extern const double PellorVersionNumber;

/// The bundle with the library's localised strings, looked up once a process; null when there is none. Any thread that
/// has a current process.
std::shared_ptr<const Bundle> PellorBundle();

/// The channel of all log lines of the library: subsystem the bundle's identifier (also where there is no bundle, so
/// that every line names its origin), category "main". One a process, made on first use, there until the process ends.
/// Any thread that has a current process.
const LogHandle&
_PLGetLogSystem();  // NOLINT(bugprone-reserved-identifier): the name is given; no macro or header has it

}  // namespace pellor
