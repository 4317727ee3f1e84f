"""Signs every request of the golden tables again, by each exchange's own published rule.

The C++ test holds the program against the tables; this one holds the tables against the exchanges'
rules, with Python's hmac and without the program.
"""
import base64
import hashlib
import hmac
import pathlib
import re
import unittest

FOLDER = pathlib.Path(__file__).resolve().parent
READS = ['balance', 'get-position', 'order-status', 'cancel-order']
TRADES = ['place-open', 'place-close', 'funding', 'close-report']


class Request:
    def __init__(self, command, method, url, given):
        self.command, self.method, self.body, self.signature = command, method, '', ''
        self.host, self.path, query = re.fullmatch(
            r'https://([^/]+)([^?]+)\??(.*)', url.replace('{timestamp}', given['timestamp'])).groups()
        self.query = query.replace('&signature={signature}', '')
        self.target = self.path + ('?' + query if query else '')


def read_table(exchange):
    given, requests, command = {}, [], ''
    for line in (FOLDER / (exchange + '.txt')).read_text(encoding='utf-8').splitlines():
        start = re.fullmatch('  (GET|POST|DELETE) (.*)', line)
        field = re.fullmatch('  (body|signature): (.*)', line)
        if line.startswith('given '):
            name, value = line[len('given '):].split(': ', 1)
            given[name] = value
        elif start:
            requests.append(Request(command, start[1], start[2], given))
        elif field:
            setattr(requests[-1], field[1], field[2])
        elif not line.startswith(('  ', '#')):
            command = line
    return given, requests


def mac(secret, text, algorithm='sha256'):
    return hmac.new(secret.encode(), text.encode(), algorithm).digest()


def in_base64(digest):
    return base64.b64encode(digest).decode()


def target_and_body(request, given):
    return in_base64(mac(given['secret'], given['timestamp'] + request.method + request.target
                         + request.body))


def bybit(request, given):
    sent = request.body if request.method == 'POST' else request.query
    return mac(given['secret'], given['timestamp'] + given['key'] + '5000' + sent).hex()


def gate(request, given):
    lines = [request.method, request.path, request.query,
             hashlib.sha512(request.body.encode()).hexdigest(), given['timestamp']]
    return mac(given['secret'], '\n'.join(lines), 'sha512').hex()


def bingx(request, given):
    return mac(given['secret'], request.query).hex()


RULES = {
    'bybit': ('api.bybit.com', bybit),
    'okx': ('www.okx.com', target_and_body),
    'gate': ('api.gateio.ws', gate),
    'bingx': ('open-api.bingx.com', bingx),
    'kucoin': ('api-futures.kucoin.com', target_and_body),
    'bitget': ('api.bitget.com', target_and_body),
}


class Signatures(unittest.TestCase):
    def test_every_signature_is_the_one_of_the_exchanges_rule(self):
        for exchange, (host, sign) in RULES.items():
            given, requests = read_table(exchange)
            for request in requests:
                with self.subTest(command=request.command, path=request.path):
                    self.assertEqual(request.host, host)
                    self.assertEqual(request.signature, sign(request, given))

    def test_kucoin_gets_the_passphrase_signed_as_well(self):
        given, _ = read_table('kucoin')
        self.assertEqual(given['signed_passphrase'],
                         in_base64(mac(given['secret'], given['passphrase'])))

    def test_only_a_post_has_a_body(self):
        for exchange in RULES:
            for request in read_table(exchange)[1]:
                self.assertTrue(request.method == 'POST' or not request.body, request.command)

    def test_every_table_holds_the_same_commands_of_every_operation(self):
        def commands(exchange):
            typed = [request.command for request in read_table(exchange)[1]]
            return [command.replace(' ' + exchange, '') for command in dict.fromkeys(typed)]
        trading = commands('bybit')
        reading = [command for command in trading if command.split()[0] in READS]
        self.assertEqual(list(dict.fromkeys(command.split()[0] for command in trading)),
                         READS + TRADES)
        for exchange in RULES:
            self.assertEqual(commands(exchange),
                             trading if exchange in ('bybit', 'okx', 'gate') else reading)
