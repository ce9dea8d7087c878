#include "pellor/linux/internal/PrometheusCounters.h"

#include <prometheus/gauge.h>
#include <prometheus/registry.h>
#include <prometheus/text_serializer.h>

#include <algorithm>
#include <exception>
#include <optional>
#include <utility>

#include "pellor/linux/files/internal/PrivatePlace.h"

namespace pellor {
namespace {

// An edit that a settle waits for must not wait for counters each time.
constexpr double PauseSeconds = 1;

/// Why the text could not be written; absent when it is there. The counters of a program are mostly those of its last
/// run, and to replace a file takes long: what it takes the place of is brought to the disk.
std::optional<std::string> write(const std::filesystem::path& file, std::string_view text) {
  const PrivateFile written(file);
  if (written.read(text.size()).text == text) return std::nullopt;
  if (auto error = PrivateFolder(file.parent_path()).make()) return error;
  return written.replace(text);
}

}  // namespace

std::string metricNameOf(std::string_view key) {
  std::string name;
  for (const char character : key) {
    const bool isLetter = (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
    const bool isDigit = character >= '0' && character <= '9';
    if (isDigit && name.empty()) name += '_';
    name += isLetter || isDigit ? character : '_';
  }
  return name.empty() ? "_" : name;
}

PrometheusCounters::PrometheusCounters(Process& process, std::filesystem::path file, LogHandle log)
    : _process(process),
      _file(std::move(file)),
      _log(std::move(log)),
      _registry(std::make_unique<prometheus::Registry>()) {
  _process.addSettleParticipant(*this);
}

PrometheusCounters::~PrometheusCounters() {
  _process.removeSettleParticipant(*this);
  if (_hasChanged) writeChanges();
}

void PrometheusCounters::setValueForScalarKey(std::string_view key, std::int64_t value) {
  _process.requireMainQueue("PrometheusCounters::setValueForScalarKey");
  const bool isNew = !_gauges.contains(key);
  prometheus::Gauge* gauge = gaugeFor(key);
  const auto number = static_cast<double>(value);
  if (!gauge || (!isNew && gauge->Value() == number)) return;
  gauge->Set(number);
  _hasChanged = true;
}

/// Null for a key of which the library can make no counter.
prometheus::Gauge* PrometheusCounters::gaugeFor(std::string_view key) {
  const auto known = _gauges.find(key);
  if (known != _gauges.end()) return known->second;
  prometheus::Gauge* gauge = nullptr;
  try {
    gauge = &makeGauge(key);
  } catch (const std::exception& error) {
    _log.log("%@ is not counted: %@", std::string(key), error.what());
  }
  _gauges.emplace(key, gauge);
  return gauge;
}

prometheus::Gauge& PrometheusCounters::makeGauge(std::string_view key) {
  // Adding a metric again gives the one that is there.
  auto& family = prometheus::BuildGauge().Name(metricNameOf(key)).Help(std::string(key)).Register(*_registry);
  return family.Add({});
}

void PrometheusCounters::didSettle() {
  if (!_hasChanged || (_writeTimer && _writeTimer->isValid())) return;
  const double pause = _lastWrite + PauseSeconds - _process.now();
  if (pause <= 0) return writeChanges();
  _writeTimer = Timer::after(_process.mainQueue(), pause, [this] { writeChanges(); });
}

void PrometheusCounters::writeChanges() {
  _lastWrite = _process.now();
  const std::optional<std::string> error = write(_file, prometheus::TextSerializer().Serialize(_registry->Collect()));
  _hasChanged = error.has_value();
  if (std::exchange(_hasFailed, error.has_value()) == error.has_value()) return;
  if (error) {
    _log.log("counters cannot be written: %@", *error);
  } else {
    _log.log("counters can be written again");
  }
}

}  // namespace pellor
