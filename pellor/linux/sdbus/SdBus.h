// Handles of sd-bus that close themselves. For the sources of this folder.
#pragma once

#include <systemd/sd-bus.h>

#include <memory>
#include <string>

namespace pellor {

struct CloseBus {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
using BusHandle = std::unique_ptr<sd_bus, CloseBus>;

struct DropSlot {
  void operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
};
using SlotHandle = std::unique_ptr<sd_bus_slot, DropSlot>;

/// Begins to connect, without waiting. Below zero when that failed.
inline int openBus(const std::string& address, BusHandle& opened) {
  sd_bus* bus = nullptr;
  int result = sd_bus_new(&bus);
  opened.reset(bus);
  if (result >= 0) result = sd_bus_set_address(bus, address.c_str());
  if (result >= 0) result = sd_bus_set_bus_client(bus, 1);
  return result >= 0 ? sd_bus_start(bus) : result;
}

}  // namespace pellor
