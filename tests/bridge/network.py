"""Machines of one network, each in a network namespace of its own, whose links can be cut: what is sent over a cut
link goes nowhere and nobody is told, as with a router that has died. Needs root in a namespace of its own:
unshare --net --mount
"""
import itertools
import subprocess

PREFIX = "10.77.0."


def call(*words):
    subprocess.run([str(word) for word in words], check=True, capture_output=True, text=True)


def try_call(*words):
    return subprocess.run([str(word) for word in words], capture_output=True).returncode == 0


class Network:
    numbers = itertools.count()  # of all networks: the kernel takes an interface away some time after its machine

    def __init__(self):
        self.addresses, self.cuts = {}, []
        if not try_call("mountpoint", "-q", "/run/netns"):
            call("mkdir", "-p", "/run/netns")
        call("mount", "-t", "tmpfs", "none", "/run/netns")
        call("ip", "link", "set", "lo", "up")
        call("ip", "link", "add", "name", "wire", "type", "bridge")
        call("ip", "address", "add", PREFIX + "1/24", "dev", "wire")
        call("ip", "link", "set", "wire", "up")

    def add(self, name):
        """@return the new machine's address"""
        number = 11 + next(self.numbers) % 240
        call("ip", "netns", "add", name)
        call("ip", "link", "add", f"to-{number}", "type", "veth", "peer", "name", "eth0", "netns", name)
        call("ip", "link", "set", f"to-{number}", "master", "wire", "up")
        call("ip", "-n", name, "address", "add", f"{PREFIX}{number}/24", "dev", "eth0")
        call("ip", "-n", name, "link", "set", "eth0", "up")
        call("ip", "-n", name, "link", "set", "lo", "up")
        self.addresses[name] = f"{PREFIX}{number}"
        return self.addresses[name]

    @staticmethod
    def place(name):
        """What runs a program on that machine, when it comes before it."""
        return ["ip", "netns", "exec", name]

    def cut(self, one, other, is_both_ways=True):
        for here, there in [(one, other), (other, one)] if is_both_ways else [(one, other)]:
            # Frames to an interface that nobody has are dropped in silence; a route would tell the sender.
            call("ip", "-n", here, "neigh", "replace", self.addresses[there], "lladdr", "02:00:00:00:00:01", "dev",
                 "eth0", "nud", "permanent")
            self.cuts.append((here, there))

    def heal(self):
        for here, there in self.cuts:
            call("ip", "-n", here, "neigh", "del", self.addresses[there], "dev", "eth0")
        self.cuts.clear()

    def remove(self):
        for name in self.addresses:
            try_call("ip", "netns", "del", name)
        call("ip", "link", "del", "wire")
        call("umount", "/run/netns")
