"""The life of an order, from its placing to what its closing brought."""

import unittest
from decimal import Decimal

from sandbox import Fault, Sandbox, hosts
from support import ConnectorTest


class Venue:
    """How one exchange tells what became of an order."""

    def __init__(self, name, host, quantity, order_id, order, states, leverage_path, order_path,
                 accepted):
        self.name, self.host, self.quantity = name, host, quantity
        self.order_id, self.order, self.states = order_id, order, states
        self.leverage_path, self.order_path, self.accepted = leverage_path, order_path, accepted


# `order_id` reads the answer to a placed order, `order` an order's own document, `states` are its
# states of resting, cancelled and filled, and `accepted` tells a success from a refusal.
BYBIT = Venue(
    "bybit", hosts.BYBIT, "0.04", lambda body: body["result"]["orderId"],
    lambda body: body["result"]["list"][0],
    [("orderStatus", "New"), ("orderStatus", "Cancelled"), ("orderStatus", "Filled")],
    "/v5/position/set-leverage", "/v5/order/create", lambda body: body["retCode"] == 0)
OKX = Venue(
    "okx", hosts.OKX_GLOBAL, "1.5", lambda body: body["data"][0]["ordId"],
    lambda body: body["data"][0],
    [("state", "live"), ("state", "canceled"), ("state", "filled")],
    "/api/v5/account/set-leverage", "/api/v5/trade/order", lambda body: body["code"] == "0")
GATE = Venue(
    "gate", hosts.GATE, "12", lambda body: str(body["id"]), lambda body: body,
    [("status", "open"), ("finish_as", "cancelled"), ("finish_as", "filled")],
    "/api/v4/futures/usdt/positions/", "/api/v4/futures/usdt/orders",
    lambda body: "label" not in body)
VENUES = (BYBIT, OKX, GATE)
RESTING, CANCELLED, FILLED = range(3)
FAR, THROUGH = {"buy": "40000", "sell": "60000"}, {"buy": "60000", "sell": "40000"}
"""Prices that a mark of 50000 leaves alone, and those that it crosses."""


class OrderTest(ConnectorTest):
    """Fresh accounts for every test."""

    @classmethod
    def setUpClass(cls):
        pass

    def setUp(self):
        self.box = Sandbox()
        self.box.__enter__()
        self.addCleanup(self.box.__exit__, None, None, None)
        super().setUp()
        for exchange in hosts.BY_EXCHANGE:
            self.store_key(exchange)

    def place(self, venue, side, price, leverage="7", coin="BTC"):
        """Opens, and gives back both answers and the order's id."""
        body = self.body("place-open", venue.name, coin + "_USDT", side, venue.quantity, price,
                         leverage)
        self.assertTrue(venue.accepted(body["place"]), body)
        return body["leverage"], body["place"], venue.order_id(body["place"])

    def assert_order(self, venue, order_id, state, symbol="BTC_USDT"):
        order = venue.order(self.body("order-status", venue.name, symbol, order_id))
        name, value = venue.states[state]
        self.assertEqual(value, order[name])
        return order


class Resting(OrderTest):
    def test_an_order_away_from_the_market_rests_until_it_is_cancelled(self):
        for venue in VENUES:
            for side in ("buy", "sell"):
                with self.subTest(exchange=venue.name, side=side):
                    leverage, _, order_id = self.place(venue, side, FAR[side],
                                                       {"buy": "7", "sell": "8"}[side])
                    self.assertTrue(venue.accepted(leverage), leverage)
                    self.assertEqual([order_id],
                                     [o.id for o in self.box.account(venue.name).open_orders()])
                    order = self.assert_order(venue, order_id, RESTING)
                    self.assertEqual(FAR[side], order.get("px", order.get("price")))
                    cancelled = self.body("cancel-order", venue.name, "BTC_USDT", order_id)
                    self.assertTrue(venue.accepted(cancelled), cancelled)
                    self.assert_order(venue, order_id, CANCELLED)
                    self.assertEqual([], self.box.account(venue.name).open_orders())

    def test_what_is_gone_cannot_be_cancelled_and_the_refusal_is_passed_on(self):
        for venue in VENUES:
            with self.subTest(exchange=venue.name):
                *_, order_id = self.place(venue, "buy", FAR["buy"])
                for accepted in (True, False):
                    answer = self.body("cancel-order", venue.name, "BTC_USDT", order_id)
                    self.assertEqual(accepted, venue.accepted(answer), answer)

    def test_a_wrong_id_or_symbol_is_the_exchanges_to_refuse(self):
        for venue in VENUES:
            *_, order_id = self.place(venue, "buy", FAR["buy"])
            for command in ("order-status", "cancel-order"):
                for symbol, named in (("BTC_USDT", "424242"), ("ETH_USDT", order_id),
                                      ("XYZ_USDT", order_id), ("", order_id)):
                    if venue is GATE and named == order_id:
                        continue  # Gate knows an order by its id alone.
                    with self.subTest(exchange=venue.name, command=command, order=(symbol, named)):
                        answer = self.body(command, venue.name, symbol, named)
                        found = venue is BYBIT and venue.accepted(answer) and \
                            answer["result"].get("list") == []
                        self.assertTrue(found or not venue.accepted(answer), answer)
            self.assert_order(venue, order_id, RESTING)
            self.body("cancel-order", venue.name, "BTC_USDT", order_id)

    def test_a_fill_while_it_rests_shows_in_its_status(self):
        for venue in VENUES:
            with self.subTest(exchange=venue.name):
                *_, order_id = self.place(venue, "buy", "2000", coin="ETH")
                self.assert_order(venue, order_id, RESTING, "ETH_USDT")
                self.box.fill(venue.name, order_id)
                self.assert_order(venue, order_id, FILLED, "ETH_USDT")


class Positions(OrderTest):
    def test_a_position_is_opened_closed_and_reported(self):
        for side, closing_side in (("buy", "sell"), ("sell", "buy")):
            for venue in VENUES:
                with self.subTest(exchange=venue.name, side=side):
                    *_, opened = self.place(venue, side, THROUGH[side])
                    self.assert_order(venue, opened, FILLED)
                    held_side = {"buy": "long", "sell": "short"}[side]
                    self.assertEqual((Decimal(venue.quantity), held_side), self.held(venue))
                    closed = self.body("place-close", venue.name, "BTC_USDT", side, venue.quantity,
                                       THROUGH[closing_side])
                    self.assertTrue(venue.accepted(closed), closed)
                    self.assertIsNone(self.held(venue))
                    self.assert_report(venue, venue.order_id(closed), opened, side)

    def test_closing_never_opens(self):
        for venue in VENUES:
            for side in ("buy", "sell"):
                with self.subTest(exchange=venue.name, side=side):
                    answer = self.body("place-close", venue.name, "BTC_USDT", side, venue.quantity,
                                       "50000")
                    if venue is OKX:
                        self.assertEqual("51169", answer["data"][0]["sCode"])
                    self.assertFalse(venue.accepted(answer), answer)
                    self.assertEqual({}, self.box.account(venue.name).orders)

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
                with self.subTest(exchange=exchange, minutes=minutes):
                    self.assertEqual(amounts,
                                     rows(self.body("funding", exchange, "BTC_USDT", *minutes)))
        bills = self.body("funding", "okx", "BTC_USDT", "1")["data"]
        self.assertEqual(["-0.0625", "0.041", "-0.0375", "-0.9"], [bill["pnl"] for bill in bills])
        self.assertEqual({"8"}, {bill["type"] for bill in bills})

    def held(self, venue):
        """Size and side of the Bitcoin position."""
        body = self.body("get-position", venue.name, "BTC_USDT")
        if venue is BYBIT:
            row, = body["result"]["list"]
            return (Decimal(row["size"]), {"Buy": "long", "Sell": "short"}[row["side"]]) \
                if row["side"] else None
        if venue is OKX:
            return next(((Decimal(row["pos"]), row["posSide"]) for row in body["data"]), None)
        return next(((Decimal(abs(row["size"])), "long" if row["size"] > 0 else "short")
                     for row in body), None)

    def assert_report(self, venue, closing_order, opening_order, side):
        body = self.body("close-report", venue.name, "BTC_USDT", closing_order)
        order = venue.order(body["order"])
        self.assertEqual(venue.states[FILLED][1], order[venue.states[FILLED][0]])
        if venue is BYBIT:
            self.assertEqual(["order", "closed_pnl"], list(body))
            self.assertEqual(closing_order, body["closed_pnl"]["result"]["list"][0]["orderId"])
        elif venue is OKX:
            self.assertEqual(["order", "positions_history"], list(body))
            latest = body["positions_history"]["data"][0]
            self.assertEqual(({"buy": "long", "sell": "short"}[side], venue.quantity),
                             (latest["posSide"], latest["closeTotalPos"]))
        else:
            self.assertEqual(["order", "trades"], list(body))
            self.assertEqual({closing_order, opening_order},
                             {trade["order_id"] for trade in body["trades"][:2]})


class Leverage(OrderTest):
    def test_the_leverage_is_set_before_the_order_goes_out(self):
        for venue in VENUES:
            for side, leverage in (("buy", "11"), ("sell", "12")):
                with self.subTest(exchange=venue.name, side=side):
                    self.box.requests.clear()
                    *_, order_id = self.place(venue, side, FAR[side], leverage)
                    first, second = self.box.requests
                    self.assertTrue(first.path.startswith(venue.leverage_path), first.target)
                    self.assertEqual(venue.order_path, second.target)
                    self.assertEqual(Decimal(leverage),
                                     self.box.account(venue.name).orders[order_id].leverage)

    def test_a_refused_leverage_does_not_hold_the_order_back(self):
        for venue in VENUES:
            with self.subTest(exchange=venue.name):
                leverage, _, order_id = self.place(venue, "buy", FAR["buy"], "500")
                self.assertFalse(venue.accepted(leverage), leverage)
                self.assert_order(venue, order_id, RESTING)

    def test_a_refused_order_is_told_beside_the_leverage(self):
        for venue in VENUES:
            with self.subTest(exchange=venue.name):
                body = self.body("place-open", venue.name, "BTC_USDT", "buy", "0", "40000", "13")
                self.assertTrue(venue.accepted(body["leverage"]), body)
                self.assertFalse(venue.accepted(body["place"]), body)

    def test_a_lost_request_fails_the_answer_though_the_order_may_stand(self):
        for venue in VENUES:
            for fault in (Fault.close(venue.host, path=venue.leverage_path),
                          Fault.lost_answer(venue.host, path=venue.order_path)):
                with self.subTest(exchange=venue.name, fault=fault):
                    self.box.requests.clear()
                    self.box.faults[:] = [fault]
                    count = len(self.box.account(venue.name).orders)
                    self.assertEqual('{"status":"error","reason":"http_failed"}\n',
                                     self.answer("place-open", venue.name, "BTC_USDT", "sell",
                                                 venue.quantity, FAR["sell"], "9"))
                    self.assertEqual(2, len(self.box.requests))
                    self.assertEqual(count + 1, len(self.box.account(venue.name).orders))


class ReadAndCancelOnly(OrderTest):
    def test_the_other_three_read_and_cancel_orders(self):
        for exchange, order, state, resting, cancelled in (
                ("bingx", lambda body: body["data"]["order"], "status", "NEW", "CANCELLED"),
                ("kucoin", lambda body: body["data"], "isActive", True, False),
                ("bitget", lambda body: body["data"], "state", "live", "canceled")):
            with self.subTest(exchange=exchange):
                standing, = self.box.account(exchange).open_orders()
                wanted = (exchange, "BTC_USDT", standing.id)
                self.assertEqual(resting, order(self.body("order-status", *wanted))[state])
                self.body("cancel-order", *wanted)
                self.assertEqual([], self.box.account(exchange).open_orders())
                self.assertEqual(cancelled, order(self.body("order-status", *wanted))[state])

    def test_the_other_three_show_their_position(self):
        for exchange, size in (
                ("bingx", lambda body: body["data"][0]["positionAmt"]),
                ("kucoin", lambda body: str(body["data"]["currentQty"])),
                ("bitget", lambda body: body["data"][0]["total"])):
            with self.subTest(exchange=exchange):
                held, = self.box.account(exchange).positions.values()
                self.assertEqual(format(held.quantity, "f"),
                                 size(self.body("get-position", exchange, "BTC_USDT")))

    def test_a_wrong_id_is_theirs_to_refuse(self):
        for exchange, code in (("bingx", 80016), ("kucoin", "100001"), ("bitget", "40109")):
            with self.subTest(exchange=exchange):
                wanted = (exchange, "BTC_USDT", "42")
                self.assertEqual(code, self.body("order-status", *wanted)["code"])
                self.assertNotIn(self.body("cancel-order", *wanted)["code"],
                                 (0, "200000", "00000"))


if __name__ == "__main__":
    unittest.main()
