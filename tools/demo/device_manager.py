"""The device manager, in Python: what a device says of its role and its cards."""
from demo.records import CARD_INFO, HOST, ROLE, Records, colons, static_info, tipc_node

MASTER, SLAVE = 1, 2
LINE_CARD = 3  # the node type
CARD_TYPE = 200


class DeviceManager:
    """Publishes the role and the cards in one host store."""

    def __init__(self, connection):
        """`connection` is one to database 1, with execute_command()."""
        self.records = Records(connection, HOST)
        self.checked = set()  # the positions of the cards online, which a daemon that starts checks

    def role(self, role=MASTER):
        """Publishes this device's global role."""
        self.records.set(ROLE, {5: 1, 6: role})

    def plug(self, position, node_type=LINE_CARD, card_type=CARD_TYPE):
        """Plugs a card, online; its TIPC node and its node id follow from its position."""
        slot = int(position.split("/")[1])
        if node_type == LINE_CARD:
            self.checked.add(position)
        self.records.set(f"{CARD_INFO}:0:{colons(position)}",
                         {6: card_type, 7: 1, 12: f"card-{slot}", 14: static_info(node_type), 17: 100 + slot,
                          22: tipc_node(position)})

    def offline(self, position):
        """Takes a card offline."""
        self.checked.discard(position)
        self.records.hmset(f"{CARD_INFO}:0:{colons(position)}", {}, absent=[7])

    def online(self, position):
        """Brings a card back online."""
        self.checked.add(position)
        self.records.hmset(f"{CARD_INFO}:0:{colons(position)}", {7: 1})

    def pull(self, position):
        """Pulls a card."""
        self.checked.discard(position)
        self.records.delete(f"{CARD_INFO}:0:{colons(position)}")
