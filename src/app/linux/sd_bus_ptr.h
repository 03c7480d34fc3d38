#pragma once
// Owning pointers for sd-bus objects, so every bus, slot and message is released on every
// path. Only the tray uses them for now; they are kept apart so another D-Bus user can
// share them. The types are declared here and defined by <systemd/sd-bus.h>.
#include <memory>

struct sd_bus;
struct sd_bus_slot;
struct sd_bus_message;

namespace duskwell::sdbus {

// Flushes what is still queued, closes the connection and drops our reference.
struct BusRelease {
    void operator()(sd_bus* bus) const;
};
// Dropping a slot ends what it stands for: a registered object, a match, a pending call.
struct SlotRelease {
    void operator()(sd_bus_slot* slot) const;
};
struct MessageRelease {
    void operator()(sd_bus_message* message) const;
};

using Bus = std::unique_ptr<sd_bus, BusRelease>;
using Slot = std::unique_ptr<sd_bus_slot, SlotRelease>;
using Message = std::unique_ptr<sd_bus_message, MessageRelease>;

}  // namespace duskwell::sdbus
