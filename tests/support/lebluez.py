#!/usr/bin/python3
"""A stand-in for BlueZ with adapters of Bluetooth Low Energy, on the bus that DBUS_SYSTEM_BUS_ADDRESS names.

What it plays comes as JSON by the method Play of org.bluez.Mock at /org/bluez:

  {"radios": [true],                      whether each is switched on
   "devices": [{"address": "...", "name": "...", "known": true, "rssi": -60, "class": 0, "type": "public",
                "port": 35000,            of a simulated adapter on this machine, which the device passes bytes to
                "mtu": 185, "sockets": true,    whether AcquireNotify and AcquireWrite are there
                "services": [["fff0", ["fff1", "notify"], ["fff2", "write"]], ...],
                "serial": ["fff1", "fff2"],     which of them carry the stream, the first that can if not given
                "split": 7, "gather": true,     notifications of so many bytes; only whole replies at once
                "empty": true,                  an empty notification before each
                "lose": 3,                      the link, with the command of this number
                "linger": 50,                   a disconnection takes so many milliseconds
                "pairing": "granted",           is demanded; or "refused"
                "errors": {"Connect": ["org.bluez.Error.Failed", "text", 2]},    so often
                "hang": ["Connect"]}]}          methods that never answer
"""

import json
import socket
import sys

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

MANAGER = "org.freedesktop.DBus.ObjectManager"
PROPERTIES = "org.freedesktop.DBus.Properties"
ADAPTER = "org.bluez.Adapter1"
DEVICE = "org.bluez.Device1"
SERVICE = "org.bluez.GattService1"
CHARACTERISTIC = "org.bluez.GattCharacteristic1"
OVERHEAD = 3  # of an ATT write or notification
ANSWER = {"async_callbacks": ("ok", "fail")}


def uuid(text):
    return f"0000{text}-0000-1000-8000-00805f9b34fb" if len(text) == 4 else text


def failure(name, text):
    return dbus.DBusException(text, name=name)


class Node(dbus.service.Object):
    """An object with one interface of BlueZ."""

    settings = {}  # what the device plays

    def __init__(self, world, path, interface, properties):
        super().__init__(world.bus, path)
        self.world, self.path, self.interface, self.properties = world, path, interface, properties

    def interfaces(self):
        return dbus.Dictionary({self.interface: dbus.Dictionary(self.properties, signature="sv")}, signature="sa{sv}")

    def change(self, **news):
        self.properties.update(news)
        self.PropertiesChanged(self.interface, dbus.Dictionary(news, signature="sv"), dbus.Array([], signature="s"))

    def answer(self, method, ok, fail, work=lambda: ()):
        """Answers as the faults of the device say, or by what `work` gives; None: it answers later."""
        error = self.settings.get("errors", {}).get(method)
        if method in self.settings.get("hang", []):
            return
        try:
            if error and error[2] != 0:
                error[2] -= 1
                raise failure(error[0], error[1])
            result = work()
            if result is not None:
                ok(*result)
        except dbus.DBusException as problem:
            fail(problem)

    @dbus.service.signal(PROPERTIES, signature="sa{sv}as")
    def PropertiesChanged(self, interface, changed, invalidated):
        pass

    @dbus.service.method(PROPERTIES, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        return self.properties[name]


class Radio(Node):
    def __init__(self, world, path, powered):
        super().__init__(world, path, ADAPTER, {"Powered": powered, "Discovering": False})

    @dbus.service.method(ADAPTER, in_signature="a{sv}")
    def SetDiscoveryFilter(self, wanted):
        self.transport = wanted.get("Transport", "auto")

    @dbus.service.method(ADAPTER)
    def StartDiscovery(self):
        self.change(Discovering=True)
        GLib.timeout_add(10, self.discover, self.transport == "le")

    @dbus.service.method(ADAPTER)
    def StopDiscovery(self):
        self.change(Discovering=False)

    def discover(self, low_energy):
        if self.properties["Discovering"]:
            self.world.discover(self, low_energy)


class Characteristic(Node):
    def __init__(self, device, path, row):
        properties = {"UUID": uuid(row[0]), "Flags": dbus.Array(row[1:], signature="s"), "Notifying": False}
        super().__init__(device.world, path, CHARACTERISTIC, properties)
        self.device, self.flags, self.settings = device, row[1:], device.settings

    def socket_for(self, name, flag):
        if not self.settings.get("sockets", True) or flag not in self.flags:
            raise failure("org.bluez.Error.NotSupported", "Operation is not supported")
        self.device.demand_pairing()
        if self.properties.get(name):
            raise failure("org.bluez.Error.NotPermitted", "Notify acquired")
        mine, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        mine.setblocking(False)
        self.change(**{name: True})
        if name == "NotifyAcquired":
            self.device.listen(self, mine)
        else:
            self.device.take_from(self, mine)
        descriptor = dbus.types.UnixFd(theirs)
        theirs.close()
        return descriptor, dbus.UInt16(self.device.mtu)

    @dbus.service.method(CHARACTERISTIC, in_signature="a{sv}", out_signature="hq", **ANSWER)
    def AcquireNotify(self, options, ok, fail):
        self.answer("AcquireNotify", ok, fail, lambda: self.socket_for("NotifyAcquired", "notify"))

    @dbus.service.method(CHARACTERISTIC, in_signature="a{sv}", out_signature="hq", **ANSWER)
    def AcquireWrite(self, options, ok, fail):
        self.answer("AcquireWrite", ok, fail, lambda: self.socket_for("WriteAcquired", "write-without-response"))

    @dbus.service.method(CHARACTERISTIC, **ANSWER)
    def StartNotify(self, ok, fail):
        def work():
            self.device.demand_pairing()
            self.change(Notifying=True)
            self.device.listen(self, None)
            return ()

        self.answer("StartNotify", ok, fail, work)

    @dbus.service.method(CHARACTERISTIC)
    def StopNotify(self):
        self.change(Notifying=False)

    @dbus.service.method(CHARACTERISTIC, in_signature="aya{sv}", **ANSWER)
    def WriteValue(self, value, options, ok, fail):
        def work():
            if not self.device.properties["Connected"]:
                raise failure("org.bluez.Error.Failed", "Not connected")
            kind = {"command": "write-without-response", "request": "write"}[str(options["type"])]
            if kind not in self.flags:
                raise failure("org.bluez.Error.NotSupported", "Operation is not supported")
            self.device.written(self, bytes(value))
            if not self.device.outgoing:
                return ()
            self.device.unanswered.append(ok)
            return None

        self.answer("WriteValue", ok, fail, work)


class Device(Node):
    def __init__(self, world, radio, settings):
        address = settings["address"]
        path = f"{radio}/dev_{address.replace(':', '_')}"
        properties = {"Address": address, "AddressType": settings.get("type", "public"), "Connected": False,
                      "Paired": False, "ServicesResolved": False, "Alias": settings.get("name", address)}
        if settings.get("rssi"):
            properties["RSSI"] = dbus.Int16(settings["rssi"])
        if settings.get("class"):
            properties["Class"] = dbus.UInt32(settings["class"])
        services = settings.get("services", [])
        properties["UUIDs"] = dbus.Array([uuid(row[0]) for row in services], signature="s")
        super().__init__(world, path, DEVICE, properties)
        self.settings, self.mtu = settings, settings.get("mtu", 185)
        self.adapter = self.inlet = self.outlet = self.listening = self.ending = None
        self.outgoing, self.incoming, self.unanswered, self.watches, self.commands = b"", b"", [], {}, 0
        self.gatt = []
        for i, row in enumerate(services):
            place = f"{path}/service{i:04x}"
            self.gatt.append(Node(world, place, SERVICE, {"UUID": uuid(row[0]), "Primary": True}))
            self.gatt += [Characteristic(self, f"{place}/char{j:04x}", entry) for j, entry in enumerate(row[1:])]

    def nodes(self):
        return [self] + (self.gatt if self.properties["ServicesResolved"] else [])

    # Connections

    @dbus.service.method(DEVICE, **ANSWER)
    def Connect(self, ok, fail):
        self.answer("Connect", ok, fail, self.connect)

    @dbus.service.method(DEVICE)
    def Disconnect(self):
        if not self.ending:  # BlueZ has one timer, too
            self.ending = GLib.timeout_add(self.settings.get("linger", 0), self.drop)

    @dbus.service.method(DEVICE, **ANSWER)
    def Pair(self, ok, fail):
        def work():
            if self.settings.get("pairing") == "refused":
                raise failure("org.bluez.Error.AuthenticationFailed", "Authentication Failed")
            self.change(Paired=True)
            return ()

        self.answer("Pair", ok, fail, work)

    def demand_pairing(self):
        if "pairing" in self.settings and not self.properties["Paired"]:
            raise failure("org.bluez.Error.NotPermitted", "Not paired")

    def connect(self):
        if not self.properties["Connected"]:
            if "port" in self.settings:
                self.adapter = socket.create_connection(("127.0.0.1", self.settings["port"]))
                self.adapter.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                self.adapter.setblocking(False)
                self.watch("adapter", self.adapter, GLib.IO_IN, self.from_adapter)
            self.commands = 0
            self.change(Connected=True)
            GLib.timeout_add(2, self.resolve)
        return ()

    def resolve(self):
        if self.properties["Connected"] and "Resolve" not in self.settings.get("hang", []):
            self.change(ServicesResolved=True)

    def drop(self):
        """The end of a connection."""
        for name in list(self.watches):
            self.unwatch(name)
        for end in (self.adapter, self.inlet, self.outlet):
            if end:
                end.close()
        if self.ending:
            GLib.source_remove(self.ending)
        self.adapter = self.inlet = self.outlet = self.listening = self.ending = None
        self.outgoing, self.incoming, self.unanswered = b"", b"", []
        for node in self.gatt:
            if isinstance(node, Characteristic):
                node.properties.update(NotifyAcquired=False, WriteAcquired=False, Notifying=False)
        if self.properties["Connected"]:
            self.change(ServicesResolved=False, Connected=False)

    def watch(self, name, end, condition, handler):
        self.unwatch(name)
        self.watches[name] = GLib.io_add_watch(end.fileno(), GLib.PRIORITY_DEFAULT, condition | GLib.IO_HUP, lambda *_: handler())

    def unwatch(self, name):
        if name in self.watches:
            GLib.source_remove(self.watches.pop(name))

    # The stream

    def carries(self, characteristic, way):
        """Whether the stream passes there."""
        wanted = self.settings.get("serial")
        return not wanted or characteristic.properties["UUID"] == uuid(wanted[way])

    def listen(self, characteristic, end):
        self.listening = characteristic
        self.inlet = end
        if end:
            self.watch("closing", end, GLib.IO_ERR, lambda: self.released("closing", characteristic, "NotifyAcquired"))
        self.flush()

    def take_from(self, characteristic, end):
        self.outlet = end
        self.watch("outlet", end, GLib.IO_IN, lambda: self.from_socket(characteristic))

    def released(self, watch, characteristic, name):
        self.unwatch(watch)
        characteristic.change(**{name: False})

    def from_socket(self, characteristic):
        packet = self.outlet.recv(65536)
        if packet:
            self.written(characteristic, packet)
        else:
            self.released("outlet", characteristic, "WriteAcquired")
        return True

    def written(self, characteristic, data):
        if len(data) > self.mtu - OVERHEAD:
            print(f"{len(data)} bytes with an MTU of {self.mtu}", file=sys.stderr)
            self.drop()
        elif self.carries(characteristic, 1) and self.adapter:
            self.commands += data.count(b"\r")
            if 0 < self.settings.get("lose", 0) <= self.commands:
                self.drop()
            else:
                self.outgoing += data
                self.to_adapter()

    def to_adapter(self):
        try:
            self.outgoing = self.outgoing[self.adapter.send(self.outgoing):]
        except BlockingIOError:
            pass
        except OSError:
            self.drop()
            return False
        if self.outgoing:
            self.unwatch("outlet")
            if "full" not in self.watches:
                self.watch("full", self.adapter, GLib.IO_OUT, self.to_adapter)
            return True
        self.unwatch("full")
        for ok in self.unanswered:
            ok()
        self.unanswered = []
        if self.outlet and "outlet" not in self.watches:
            outlets = [n for n in self.gatt if n.properties.get("WriteAcquired")]
            if outlets:
                self.take_from(outlets[0], self.outlet)
        return False

    def from_adapter(self):
        try:
            data = self.adapter.recv(65536)
        except OSError:
            data = b""
        if not data:
            self.drop()
            return False
        self.incoming += data
        self.flush()
        return True

    def flush(self):
        if not self.listening or not self.carries(self.listening, 0):
            self.incoming = b""
        if self.settings.get("gather") and b">" not in self.incoming:
            return False
        size = min(self.settings.get("split", 512), self.mtu - OVERHEAD, 512)
        while self.incoming:
            if self.settings.get("empty") and self.inlet:
                self.inlet.send(b"")
            if not self.notify(self.incoming[:size]):
                return True
            self.incoming = self.incoming[size:]
        self.unwatch("slow")
        return False

    def notify(self, piece):
        """False if the other side takes no more for now."""
        try:
            if self.inlet:
                self.inlet.send(piece)
            elif self.listening.properties["Notifying"]:
                value = dbus.Dictionary({"Value": dbus.ByteArray(piece)}, signature="sv")
                self.listening.PropertiesChanged(CHARACTERISTIC, value, dbus.Array([], signature="s"))
        except BlockingIOError:
            if "slow" not in self.watches:
                self.watch("slow", self.inlet, GLib.IO_OUT, self.flush)
            return False
        except OSError:
            self.inlet = None
        return True


class World(dbus.service.Object):
    SUPPORTS_MULTIPLE_OBJECT_PATHS = True

    def __init__(self, bus):
        super().__init__(bus, "/")
        self.add_to_connection(bus, "/org/bluez")
        self.bus, self.radios, self.devices, self.hidden = bus, [], [], []

    @dbus.service.method(MANAGER, out_signature="a{oa{sa{sv}}}")
    def GetManagedObjects(self):
        nodes = self.radios + [node for device in self.devices for node in device.nodes()]
        return dbus.Dictionary({node.path: node.interfaces() for node in nodes}, signature="oa{sa{sv}}")

    @dbus.service.signal(MANAGER, signature="oa{sa{sv}}")
    def InterfacesAdded(self, path, interfaces):
        pass

    @dbus.service.method("org.bluez.Mock", in_signature="s")
    def Play(self, scene):
        scene = json.loads(scene)
        for device in self.devices + self.hidden:
            device.drop()
            for node in [device] + device.gatt:
                node.remove_from_connection()
        for radio in self.radios:
            radio.remove_from_connection()
        powered = scene.get("radios", [True])
        self.radios = [Radio(self, f"/org/bluez/hci{i}", on) for i, on in enumerate(powered)]
        home = self.radios[0].path if self.radios else "/org/bluez/none"
        devices = [Device(self, home, settings) for settings in scene.get("devices", [])]
        self.devices = [device for device in devices if device.settings.get("known")]
        self.hidden = [device for device in devices if not device.settings.get("known")]

    def discover(self, radio, low_energy):
        shown = [device for device in self.hidden if low_energy != bool(device.settings.get("class"))]
        for device in shown:
            self.hidden.remove(device)
            self.devices.append(device)
            self.InterfacesAdded(device.path, device.interfaces())


dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
system = dbus.SystemBus()
world = World(system)
name = dbus.service.BusName("org.bluez", system)
GLib.MainLoop().run()
