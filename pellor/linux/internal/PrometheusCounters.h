// Counters as a text file in the Prometheus exposition format.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "pellor/platform/AnalyticsCounters.h"
#include "pellor/runtime/Log.h"
#include "pellor/runtime/Process.h"
#include "pellor/runtime/Timer.h"

namespace prometheus {
class Gauge;
class Registry;
}  // namespace prometheus

namespace pellor {

/// Writes the file at the end of a settle of the process in which a value changed, unless the text is unchanged, and at
/// most once a second: what a settle leaves is written a second after the last write, or with the end of the object. A
/// write that fails is logged once and tried again likewise; counters never make a settle fail. Main queue; destroyed
/// on it too, at the latest with the process.
class PrometheusCounters final : public AnalyticsCounters, public SettleParticipant {
 public:
  /// `file` is replaced as a whole, for the owner alone; its folder is made when it is missing.
  PrometheusCounters(Process& process, std::filesystem::path file, LogHandle log);
  ~PrometheusCounters() override;
  PrometheusCounters(const PrometheusCounters&) = delete;
  PrometheusCounters& operator=(const PrometheusCounters&) = delete;

  void setValueForScalarKey(std::string_view key, std::int64_t value) override;

  bool isSettled() const override { return true; }
  bool isWritten() const override { return true; }
  void didSettle() override;

 private:
  prometheus::Gauge* gaugeFor(std::string_view key);
  prometheus::Gauge& makeGauge(std::string_view key);
  void writeChanges();

  Process& _process;
  const std::filesystem::path _file;
  const LogHandle _log;
  const std::unique_ptr<prometheus::Registry> _registry;
  std::map<std::string, prometheus::Gauge*, std::less<>> _gauges;  ///< by key; owned by the registry
  double _lastWrite = 0;                                           ///< in the time of the process
  std::shared_ptr<Timer> _writeTimer;                              ///< for what came too soon after the last write
  bool _hasChanged = false;
  bool _hasFailed = false;
};

/// The key with everything that may not stand in a metric name as "_": "org.tapnote.tn.friendList.size" is
/// "org_tapnote_tn_friendList_size". Keys that differ in such characters alone share a metric.
std::string metricNameOf(std::string_view key);

}  // namespace pellor
