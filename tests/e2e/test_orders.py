"""The life of an order, from its placing to what its closing brought."""

from collections import namedtuple
from decimal import Decimal

from sandbox import Fault, hosts
from support import ConnectorTest


# How each exchange tells what became of an order: `order_id` reads the answer to a placed order,
# `order` an order's own document, `states` are its states of resting, cancelled and filled,
# `accepted` tells a success from a refusal, `held` reads size and side of a position, `report` what
# proves a closing.
Venue = namedtuple("Venue", "name host quantity order_id order states leverage_path order_path "
                            "accepted held report")
BYBIT = Venue("bybit", hosts.BYBIT, "0.04", lambda body: body["result"]["orderId"],
    lambda body: body["result"]["list"][0],
    [("orderStatus", "New"), ("orderStatus", "Cancelled"), ("orderStatus", "Filled")],
    "/v5/position/set-leverage", "/v5/order/create", lambda body: body["retCode"] == 0,
    lambda body: [(Decimal(row["size"]), {"Buy": "long", "Sell": "short"}.get(row["side"]))
                  for row in body["result"]["list"]][0],
    lambda body: body["closed_pnl"]["result"]["list"][0]["orderId"])
OKX = Venue("okx", hosts.OKX_GLOBAL, "1.5", lambda body: body["data"][0]["ordId"],
    lambda body: body["data"][0], [("state", "live"), ("state", "canceled"), ("state", "filled")],
    "/api/v5/account/set-leverage", "/api/v5/trade/order", lambda body: body["code"] == "0",
    lambda body: [*((Decimal(row["pos"]), row["posSide"]) for row in body["data"]), (0, "")][0],
    lambda body: tuple(body["positions_history"]["data"][0][name]
                       for name in ("posSide", "closeTotalPos")))
GATE = Venue("gate", hosts.GATE, "12", lambda body: str(body["id"]), lambda body: body,
    [("status", "open"), ("finish_as", "cancelled"), ("finish_as", "filled")],
    "/api/v4/futures/usdt/positions/", "/api/v4/futures/usdt/orders",
    lambda body: "label" not in body,
    lambda body: [*((abs(row["size"]), "long" if row["size"] > 0 else "short")
                    for row in body), (0, "")][0],
    lambda body: [trade["order_id"] for trade in body["trades"][:2]])
RESTING, CANCELLED, FILLED = range(3)
FAR, THROUGH = {"buy": "40000", "sell": "60000"}, {"buy": "60000", "sell": "40000"}
"""Prices that a mark of 50000 leaves alone, and those that it crosses."""
SIDES = [(venue, side) for venue in (BYBIT, OKX, GATE) for side in ("buy", "sell")]


class Orders(ConnectorTest):
    def setUp(self):
        self.setUpClass()  # fresh accounts
        super().setUp()
        for exchange in hosts.BY_EXCHANGE:
            self.store_key(exchange)

    def place(self, venue, side, price, leverage):
        """Opens, and gives back the answer about the leverage and the order's id."""
        body = self.body("place-open", venue.name, "BTC_USDT", side, venue.quantity, price,
                         leverage)
        self.assertTrue(venue.accepted(body["place"]), body)
        return body["leverage"], venue.order_id(body["place"])

    def assert_order(self, venue, order_id, state):
        order = venue.order(self.body("order-status", venue.name, "BTC_USDT", order_id))
        name, value = venue.states[state]
        self.assertEqual(value, order[name])
        return order

    def test_an_order_away_from_the_market_rests_at_its_leverage_until_it_is_cancelled(self):
        for venue, side in SIDES:
            self.box.requests.clear()
            asked = {"buy": "7", "sell": "8"}[side]
            leverage, order_id = self.place(venue, side, FAR[side], asked)
            first, second = self.box.requests
            self.assertTrue(first.path.startswith(venue.leverage_path), first.target)
            self.assertEqual(venue.order_path, second.target)
            self.assertTrue(venue.accepted(leverage), leverage)
            account = self.box.account(venue.name)
            self.assertEqual(Decimal(asked), account.orders[order_id].leverage)
            order = self.assert_order(venue, order_id, RESTING)
            self.assertEqual(FAR[side], order.get("px", order.get("price")))
            for symbol, other in (("BTC_USDT", "424242"), ("ETH_USDT", order_id), ("", order_id)):
                if venue is not GATE or other != order_id:  # Gate's ids need no symbol.
                    answer = self.body("cancel-order", venue.name, symbol, other)
                    self.assertFalse(venue.accepted(answer), answer)
            for accepted in (True, False):  # What is gone cannot be cancelled.
                answer = self.body("cancel-order", venue.name, "BTC_USDT", order_id)
                self.assertEqual(accepted, venue.accepted(answer), answer)
                self.assert_order(venue, order_id, CANCELLED)

    def test_a_position_is_opened_closed_and_reported_and_closing_never_opens(self):
        for venue, side in SIDES:
            _, opened = self.place(venue, side, THROUGH[side], "7")
            self.assert_order(venue, opened, FILLED)
            held_side = {"buy": "long", "sell": "short"}[side]
            self.assertEqual((Decimal(venue.quantity), held_side), self.held(venue))
            close = ["place-close", venue.name, "BTC_USDT", side, venue.quantity, FAR[side]]
            closed = self.body(*close)
            self.assertTrue(venue.accepted(closed), closed)
            self.assertEqual(0, self.held(venue)[0])
            report = self.body("close-report", venue.name, "BTC_USDT", venue.order_id(closed))
            name, filled = venue.states[FILLED]
            self.assertEqual(filled, venue.order(report["order"])[name])
            self.assertEqual({"bybit": venue.order_id(closed), "okx": (held_side, venue.quantity),
                              "gate": [venue.order_id(closed), opened]}[venue.name],
                             venue.report(report))
            again = self.body(*close)
            self.assertFalse(venue.accepted(again), again)
            self.assertEqual(0, self.held(venue)[0])

    def held(self, venue):
        return venue.held(self.body("get-position", venue.name, "BTC_USDT"))

    def test_the_funding_of_the_last_hours_is_there_and_older_funding_is_not(self):
        # Booked 30, 90 and 150 minutes ago, and two days ago. Bybit's log is of all contracts.
        for exchange, rows in (("bybit", lambda body: [row["funding"] for row in
                                                       body["result"]["list"]
                                                       if row["symbol"] == "BTCUSDT"
                                                       and row["funding"]]),
                               ("gate", lambda body: [row["change"] for row in body])):
            for minutes, amounts in (([], ["-0.0625", "0.041", "-0.0375"]),
                                     (["120"], ["-0.0625", "0.041"]), (["60x"], ["-0.0625"]),
                                     (["0"], []), (["-60"], [])):
                self.assertEqual(amounts,
                                 rows(self.body("funding", exchange, "BTC_USDT", *minutes)))
        # OKX gives its latest, whatever the look-back.
        bills = self.body("funding", "okx", "BTC_USDT", "1")["data"]
        self.assertEqual(["-0.0625", "0.041", "-0.0375", "-0.9"], [bill["pnl"] for bill in bills])

    def test_a_lost_request_fails_the_answer_though_the_order_may_stand(self):
        for venue, _ in SIDES[::2]:
            for fault in (Fault.close(venue.host, path=venue.leverage_path),
                          Fault.lost_answer(venue.host, path=venue.order_path)):
                self.box.requests.clear()
                self.box.faults[:] = [fault]
                count = len(self.box.account(venue.name).orders)
                self.assert_run((0, '{"status":"error","reason":"http_failed"}\n'),
                                "place-open", venue.name, "BTC_USDT", "sell", venue.quantity,
                                FAR["sell"], "9")
                self.assertEqual(2, len(self.box.requests))
                self.assertEqual(count + 1, len(self.box.account(venue.name).orders))

    def test_the_other_three_show_a_position_and_read_and_cancel_orders(self):
        for exchange, size, order, state, resting, cancelled, unknown in (
                ("bingx", lambda body: body["data"][0]["positionAmt"],
                 lambda body: body["data"]["order"], "status", "NEW", "CANCELLED", 80016),
                ("kucoin", lambda body: str(body["data"]["currentQty"]),
                 lambda body: body["data"], "isActive", True, False, "100001"),
                ("bitget", lambda body: body["data"][0]["total"],
                 lambda body: body["data"], "state", "live", "canceled", "40109")):
            account = self.box.account(exchange)
            position, = account.positions.values()
            self.assertEqual(format(position.quantity, "f"),
                             size(self.body("get-position", exchange, "BTC_USDT")))
            standing, = account.open_orders()
            wanted = (exchange, "BTC_USDT", standing.id)
            self.assertEqual(resting, order(self.body("order-status", *wanted))[state])
            self.body("cancel-order", *wanted)
            self.assertEqual([], account.open_orders())
            self.assertEqual(cancelled, order(self.body("order-status", *wanted))[state])
            self.assertNotIn(self.body("cancel-order", *wanted)["code"], (0, "200000", "00000"))
            missing = self.body("order-status", exchange, "BTC_USDT", "42")
            self.assertEqual(unknown, missing["code"])
