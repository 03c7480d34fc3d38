#include "sd_bus_ptr.h"

#include <systemd/sd-bus.h>

namespace duskwell::sdbus {

void BusRelease::operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
void SlotRelease::operator()(sd_bus_slot* slot) const { sd_bus_slot_unref(slot); }
void MessageRelease::operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }

}  // namespace duskwell::sdbus
