#!/usr/bin/python3
"""A StatusNotifierWatcher for tests, on whatever bus DBUS_SESSION_BUS_ADDRESS names.

  fake_watcher.py watch RECORD      own org.kde.StatusNotifierWatcher; append to RECORD one
                                    line per event: "ready", "registered <service>",
                                    "signal <member>" for every tray item and menu signal
  fake_watcher.py props SERVICE     print the item's properties as JSON
  fake_watcher.py layout SERVICE    print the menu's entries as JSON [{id, type, label, enabled}]
  fake_watcher.py click SERVICE ID  send Event(ID, "clicked") to the menu
  fake_watcher.py activate SERVICE  send Activate(0, 0) to the item (a left click)
"""
import json
import sys

import dbus
import dbus.service
from dbus.mainloop.glib import DBusGMainLoop
from gi.repository import GLib

WATCHER = "org.kde.StatusNotifierWatcher"
ITEM = "org.kde.StatusNotifierItem"
MENU = "com.canonical.dbusmenu"


def plain(value):
    """dbus-python values as JSON-friendly ones."""
    if isinstance(value, dbus.Boolean):
        return bool(value)
    if isinstance(value, (dbus.String, dbus.ObjectPath)):
        return str(value)
    if isinstance(value, (dbus.Int32, dbus.UInt32, dbus.Int64, dbus.UInt64, dbus.Byte)):
        return int(value)
    if isinstance(value, dbus.Dictionary):
        return {str(k): plain(v) for k, v in value.items()}
    if isinstance(value, (dbus.Array, dbus.Struct, list, tuple)):
        return [plain(v) for v in value]
    return value


class Watcher(dbus.service.Object):
    def __init__(self, bus, record):
        super().__init__(bus, "/StatusNotifierWatcher")
        self.record = record
        self.items = []

    def note(self, line):
        with open(self.record, "a") as f:
            f.write(line + "\n")

    @dbus.service.method(WATCHER, in_signature="s", sender_keyword="sender")
    def RegisterStatusNotifierItem(self, service, sender=None):
        name = service if not service.startswith("/") else sender
        if name not in self.items:
            self.items.append(name)
        self.note("registered " + name)
        self.StatusNotifierItemRegistered(name)

    @dbus.service.method(WATCHER, in_signature="s")
    def RegisterStatusNotifierHost(self, service):
        pass

    @dbus.service.signal(WATCHER, signature="s")
    def StatusNotifierItemRegistered(self, service):
        pass

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        return self.GetAll(interface)[name]

    @dbus.service.method(dbus.PROPERTIES_IFACE, in_signature="s", out_signature="a{sv}")
    def GetAll(self, interface):
        return {
            "RegisteredStatusNotifierItems": dbus.Array(self.items, signature="s"),
            "IsStatusNotifierHostRegistered": True,
            "ProtocolVersion": dbus.Int32(0),
        }


def watch(record):
    DBusGMainLoop(set_as_default=True)
    bus = dbus.SessionBus()
    watcher = Watcher(bus, record)
    for interface in (ITEM, MENU):
        bus.add_signal_receiver(lambda *args, member=None: watcher.note("signal " + member),
                                dbus_interface=interface, member_keyword="member")
    bus.request_name(WATCHER, dbus.bus.NAME_FLAG_DO_NOT_QUEUE)
    watcher.note("ready")
    GLib.MainLoop().run()


def main(argv):
    if argv[1] == "watch":
        return watch(argv[2])
    bus = dbus.SessionBus()
    service = argv[2]
    if argv[1] == "props":
        props = bus.get_object(service, "/StatusNotifierItem").GetAll(ITEM, dbus_interface=dbus.PROPERTIES_IFACE)
        print(json.dumps(plain(props), ensure_ascii=False))
    elif argv[1] == "layout":
        _, (_, _, children) = bus.get_object(service, "/MenuBar").GetLayout(0, -1, [], dbus_interface=MENU)
        entries = [{"id": int(i), "type": str(p.get("type", "standard")), "label": str(p.get("label", "")),
                    "enabled": bool(p.get("enabled", True))} for i, p, _ in children]
        print(json.dumps(entries, ensure_ascii=False))
    elif argv[1] == "click":
        bus.get_object(service, "/MenuBar").Event(int(argv[3]), "clicked", dbus.String("", variant_level=1),
                                                   dbus.UInt32(0), dbus_interface=MENU)
    elif argv[1] == "activate":
        bus.get_object(service, "/StatusNotifierItem").Activate(0, 0, dbus_interface=ITEM)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
