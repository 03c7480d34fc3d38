#!/usr/bin/python3
"""Stand-ins for the desktop's D-Bus services, for duskwelld's end-to-end tests.

logind, power-profiles-daemon and UPower go on the bus named by DBUS_SYSTEM_BUS_ADDRESS;
the notification service and the screen saver on DBUS_SESSION_BUS_ADDRESS (both private
buses the test started). Every call is appended to --log as one JSON object per line, and
"ready" once all names are owned. SIGUSR1 makes logind announce PrepareForShutdown(true);
SIGUSR2 closes the lid.
"""
import argparse
import json
import os
import signal
import sys

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

PROPS = "org.freedesktop.DBus.Properties"

args = None


def record(**entry):
    with open(args.log, "a") as f:
        f.write(json.dumps(entry) + "\n")


class Properties(dbus.service.Object):
    """An object answering Properties.Get/GetAll/Set from a dict per interface."""

    def __init__(self, bus, path, values):
        super().__init__(bus, path)
        self.values = values

    @dbus.service.method(PROPS, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        try:
            return self.values[interface][name]
        except KeyError:
            raise dbus.exceptions.DBusException("no such property", name="org.freedesktop.DBus.Error.UnknownProperty")

    @dbus.service.method(PROPS, in_signature="s", out_signature="a{sv}")
    def GetAll(self, interface):
        return self.values.get(interface, {})

    @dbus.service.method(PROPS, in_signature="ssv")
    def Set(self, interface, name, value):
        record(call="Set", interface=interface, name=name, value=str(value))
        self.values.setdefault(interface, {})[name] = value


LOGIND = "org.freedesktop.login1.Manager"


class Logind(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, "/org/freedesktop/login1")
        self.session = Session(bus)

    @dbus.service.method(LOGIND, in_signature="ssss", out_signature="h")
    def Inhibit(self, what, who, why, mode):
        record(call="Inhibit", args=[what, who, why, mode])
        if args.refuse_inhibit:
            raise dbus.exceptions.DBusException("refused", name="org.freedesktop.DBus.Error.AccessDenied")
        # Like logind: we keep the read end and see the lock end when the holder's copy of
        # the write end closes (released, or the holder died).
        read_end, write_end = os.pipe()
        GLib.io_add_watch(read_end, GLib.IO_HUP | GLib.IO_ERR, self.released)
        fd = dbus.types.UnixFd(write_end)  # a copy travels with the reply
        os.close(write_end)
        return fd

    def released(self, fd, condition):
        record(event="released")
        os.close(fd)
        return False

    @dbus.service.method(LOGIND, in_signature="s", out_signature="o")
    def GetSession(self, session_id):
        record(call="GetSession", args=[session_id])
        return dbus.ObjectPath("/org/freedesktop/login1/session/test")

    @dbus.service.method(LOGIND, in_signature="u", out_signature="o")
    def GetSessionByPID(self, pid):
        record(call="GetSessionByPID", args=[int(pid)])
        return dbus.ObjectPath("/org/freedesktop/login1/session/test")

    @dbus.service.signal(LOGIND, signature="b")
    def PrepareForShutdown(self, starting):
        record(event="PrepareForShutdown", starting=bool(starting))


class Session(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, "/org/freedesktop/login1/session/test")

    @dbus.service.method("org.freedesktop.login1.Session")
    def Lock(self):
        record(call="Lock")


NOTIFICATIONS = "org.freedesktop.Notifications"


class Notifications(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, "/org/freedesktop/Notifications")
        self.next_id = 1

    @dbus.service.method(NOTIFICATIONS, in_signature="susssasa{sv}i", out_signature="u")
    def Notify(self, app, replaces, icon, summary, body, actions, hints, timeout):
        nid = self.next_id
        self.next_id += 1
        record(call="Notify", app=str(app), summary=str(summary), body=str(body), actions=[str(a) for a in actions])
        keys = [str(a) for a in actions[0::2]]
        if args.pick is not None and args.pick < len(keys):
            # The user clicks a little later.
            GLib.timeout_add(200, self.pick, nid, keys[args.pick])
        return dbus.UInt32(nid)

    def pick(self, nid, key):
        self.ActionInvoked(dbus.UInt32(nid), key)
        self.NotificationClosed(dbus.UInt32(nid), dbus.UInt32(2))
        return False

    @dbus.service.signal(NOTIFICATIONS, signature="us")
    def ActionInvoked(self, nid, key):
        record(event="ActionInvoked", key=str(key))

    @dbus.service.signal(NOTIFICATIONS, signature="uu")
    def NotificationClosed(self, nid, reason):
        pass

    @dbus.service.method(NOTIFICATIONS, out_signature="as")
    def GetCapabilities(self):
        return ["actions", "body"]


class ScreenSaver(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, "/org/freedesktop/ScreenSaver")

    @dbus.service.method("org.freedesktop.ScreenSaver")
    def Lock(self):
        record(call="ScreenSaver.Lock")


def main():
    global args
    p = argparse.ArgumentParser()
    p.add_argument("--log", required=True)
    p.add_argument("--services", default="logind,notifications,ppd,upower,screensaver")
    p.add_argument("--refuse-inhibit", action="store_true")
    p.add_argument("--pick", type=int, help="index of the notification action the user picks")
    p.add_argument("--profile", default="balanced")
    p.add_argument("--ppd-name", default="net.hadess.PowerProfiles")
    p.add_argument("--on-battery", action="store_true")
    p.add_argument("--percent", type=float, default=80.0)
    p.add_argument("--time-to-empty", type=int, default=0)
    p.add_argument("--lid", choices=["none", "open", "closed"], default="none")
    args = p.parse_args()
    wanted = set(args.services.split(","))

    DBusGMainLoop(set_as_default=True)
    system = dbus.bus.BusConnection(os.environ["DBUS_SYSTEM_BUS_ADDRESS"])
    session = dbus.bus.BusConnection(os.environ["DBUS_SESSION_BUS_ADDRESS"])
    keep = []  # names and objects live as long as the process

    if "logind" in wanted:
        keep.append(dbus.service.BusName("org.freedesktop.login1", system))
        logind = Logind(system)
        keep.append(logind)
        GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGUSR1,
                             lambda: logind.PrepareForShutdown(True) or True)
    if "ppd" in wanted:
        name = args.ppd_name
        path = "/" + name.replace(".", "/")
        keep.append(dbus.service.BusName(name, system))
        keep.append(Properties(system, path, {name: {"ActiveProfile": args.profile}}))
    if "upower" in wanted:
        root = {
            "OnBattery": dbus.Boolean(args.on_battery),
            "LidIsPresent": dbus.Boolean(args.lid != "none"),
            "LidIsClosed": dbus.Boolean(args.lid == "closed"),
        }
        device = {
            "IsPresent": dbus.Boolean(True),
            "Type": dbus.UInt32(2),
            "Percentage": dbus.Double(args.percent),
            "TimeToEmpty": dbus.Int64(args.time_to_empty),
            "State": dbus.UInt32(2 if args.on_battery else 1),
        }
        keep.append(dbus.service.BusName("org.freedesktop.UPower", system))
        keep.append(Properties(system, "/org/freedesktop/UPower", {"org.freedesktop.UPower": root}))
        keep.append(Properties(system, "/org/freedesktop/UPower/devices/DisplayDevice",
                               {"org.freedesktop.UPower.Device": device}))

        def close_lid():
            root["LidIsPresent"] = dbus.Boolean(True)
            root["LidIsClosed"] = dbus.Boolean(True)
            record(event="lid-closed")
            return True
        GLib.unix_signal_add(GLib.PRIORITY_DEFAULT, signal.SIGUSR2, close_lid)
    if "notifications" in wanted:
        keep.append(dbus.service.BusName(NOTIFICATIONS, session))
        keep.append(Notifications(session))
    if "screensaver" in wanted:
        keep.append(dbus.service.BusName("org.freedesktop.ScreenSaver", session))
        keep.append(ScreenSaver(session))

    record(event="ready")
    GLib.MainLoop().run()


if __name__ == "__main__":
    sys.exit(main())
