#!/usr/bin/python3
"""A stand-in logind and power-profiles-daemon for the keep-awake self-check's tests.

Usage: held_fake_logind.py BUS_ADDRESS STATE_FILE READY_FILE

Owns org.freedesktop.login1 and org.freedesktop.UPower.PowerProfiles on the bus at
BUS_ADDRESS (a private dbus-daemon). STATE_FILE (JSON) is read again at every call, so a
test changes the answers while this runs:
  grant     Inhibit hands out a lock (default true); false answers an error
  list      the granted locks appear in ListInhibitors (default true)
  extra     more rows for ListInhibitors: [what, who, why, mode, uid, pid]
  lid, lidExternalPower, lidDocked   logind's HandleLidSwitch* values; absent = no property
  profile   ActiveProfile; absent = the profiles service answers an error
A granted lock lasts until its holder closes the fd it was given, as with logind. Every
Inhibit call adds a line to STATE_FILE.calls.
READY_FILE is written once both names are owned.
"""
import json
import os
import sys

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

LOGIND = "org.freedesktop.login1"
MANAGER = "org.freedesktop.login1.Manager"
PROFILES = "org.freedesktop.UPower.PowerProfiles"
PROPS = "org.freedesktop.DBus.Properties"


def state():
    try:
        with open(sys.argv[2]) as f:
            return json.load(f)
    except (OSError, ValueError):
        return {}


class Manager(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, "/org/freedesktop/login1")
        self.bus = bus
        self.locks = {}  # read end -> row

    @dbus.service.method(MANAGER, in_signature="ssss", out_signature="h", sender_keyword="sender")
    def Inhibit(self, what, who, why, mode, sender=None):
        with open(sys.argv[2] + ".calls", "a") as f:
            f.write("%s %s %s\n" % (what, who, mode))
        if not state().get("grant", True):
            raise dbus.exceptions.DBusException("refused by the test", name="org.freedesktop.DBus.Error.AccessDenied")
        daemon = self.bus.get_object("org.freedesktop.DBus", "/org/freedesktop/DBus")
        pid = int(daemon.GetConnectionUnixProcessID(sender, dbus_interface="org.freedesktop.DBus"))
        uid = int(daemon.GetConnectionUnixUser(sender, dbus_interface="org.freedesktop.DBus"))
        read_end, write_end = os.pipe()
        self.locks[read_end] = [what, who, why, mode, uid, pid]
        GLib.io_add_watch(read_end, GLib.IO_HUP | GLib.IO_ERR, self.released)
        fd = dbus.types.UnixFd(write_end)  # a duplicate travels; ours is closed
        os.close(write_end)
        return fd

    def released(self, fd, _condition):
        self.locks.pop(fd, None)
        os.close(fd)
        return False

    @dbus.service.method(MANAGER, in_signature="", out_signature="a(ssssuu)")
    def ListInhibitors(self):
        s = state()
        rows = list(self.locks.values()) if s.get("list", True) else []
        rows += s.get("extra", [])
        return dbus.Array([dbus.Struct((r[0], r[1], r[2], r[3], dbus.UInt32(r[4]), dbus.UInt32(r[5])))
                           for r in rows], signature="(ssssuu)")

    @dbus.service.method(PROPS, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        key = {"HandleLidSwitch": "lid", "HandleLidSwitchExternalPower": "lidExternalPower",
               "HandleLidSwitchDocked": "lidDocked"}.get(name)
        value = state().get(key) if key else None
        if interface != MANAGER or value is None:
            raise dbus.exceptions.DBusException(name, name="org.freedesktop.DBus.Error.UnknownProperty")
        return dbus.String(value)


class Profiles(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, "/org/freedesktop/UPower/PowerProfiles")

    @dbus.service.method(PROPS, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        value = state().get("profile")
        if interface != PROFILES or name != "ActiveProfile" or value is None:
            raise dbus.exceptions.DBusException(name, name="org.freedesktop.DBus.Error.UnknownProperty")
        return dbus.String(value)


def main():
    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
    bus = dbus.bus.BusConnection(sys.argv[1])
    names = [dbus.service.BusName(LOGIND, bus), dbus.service.BusName(PROFILES, bus)]
    objects = [Manager(bus), Profiles(bus)]
    with open(sys.argv[3], "w") as f:
        f.write("ready\n")
    GLib.MainLoop().run()
    del names, objects


if __name__ == "__main__":
    main()
