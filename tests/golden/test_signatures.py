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
from typing import Callable, Dict, List, NamedTuple, Tuple

FOLDER = pathlib.Path(__file__).resolve().parent
JSON = 'Content-Type: application/json'


class Request(NamedTuple):
    command: str
    method: str
    url: str
    headers: List[str]
    body: str
    signs: str

    @property
    def target(self) -> str:
        return re.sub(r'^https://[^/]+', '', self.url)

    @property
    def path(self) -> str:
        return self.target.partition('?')[0]

    @property
    def query(self) -> str:
        return self.target.partition('?')[2]


class Table(NamedTuple):
    given: Dict[str, str]
    requests: List[Request]


def read_table(exchange: str) -> Table:
    given: Dict[str, str] = {}
    requests: List[Request] = []
    command = ''
    for line in (FOLDER / (exchange + '.txt')).read_text(encoding='utf-8').splitlines():
        text = line[2:]
        start = re.fullmatch(r'(GET|POST|DELETE) (https://.*)', text)
        if not line or line.startswith('#'):
            continue
        if line.startswith('given '):
            name, value = line[len('given '):].split(': ', 1)
            given[name] = value
        elif not line.startswith('  '):
            command = line
        elif start:
            requests.append(Request(command, start.group(1), start.group(2), [], '', ''))
        elif text.startswith('body: '):
            requests[-1] = requests[-1]._replace(body=text[len('body: '):])
        elif text.startswith('signs: '):
            requests[-1] = requests[-1]._replace(signs=text[len('signs: '):].replace('\\n', '\n'))
        else:
            requests[-1].headers.append(text)
    return Table(given, requests)


def mac(secret: str, text: str, algorithm: str = 'sha256') -> bytes:
    return hmac.new(secret.encode(), text.encode(), algorithm).digest()


def mac_base64(secret: str, text: str) -> str:
    return base64.b64encode(mac(secret, text)).decode()


# The text that a request must have signed and the header lines that it must carry.
Expected = Tuple[str, List[str]]


def bybit(request: Request, given: Dict[str, str]) -> Expected:
    post = request.method == 'POST'
    signs = given['timestamp'] + given['api_key'] + '5000' + (request.body if post
                                                              else request.query)
    return signs, [
        'X-BAPI-API-KEY: ' + given['api_key'],
        'X-BAPI-TIMESTAMP: ' + given['timestamp'],
        'X-BAPI-RECV-WINDOW: 5000',
        'X-BAPI-SIGN: ' + mac(given['api_secret'], signs).hex(),
    ] + ([JSON] if post else [])


def okx(request: Request, given: Dict[str, str]) -> Expected:
    signs = given['timestamp'] + request.method + request.target + request.body
    return signs, [
        'OK-ACCESS-KEY: ' + given['api_key'],
        'OK-ACCESS-SIGN: ' + mac_base64(given['api_secret'], signs),
        'OK-ACCESS-TIMESTAMP: ' + given['timestamp'],
        'OK-ACCESS-PASSPHRASE: ' + given['passphrase'],
    ] + ([JSON] if request.method == 'POST' else [])


def gate(request: Request, given: Dict[str, str]) -> Expected:
    body_hash = hashlib.sha512(request.body.encode()).hexdigest()
    signs = '\n'.join([request.method, request.path, request.query, body_hash,
                       given['timestamp']])
    return signs, [
        'KEY: ' + given['api_key'],
        'Timestamp: ' + given['timestamp'],
        'SIGN: ' + mac(given['api_secret'], signs, 'sha512').hex(),
    ] + ([JSON] if request.body else [])


def bingx(request: Request, given: Dict[str, str]) -> Expected:
    signs = request.query.rpartition('&signature=')[0]
    return signs, ['X-BX-APIKEY: ' + given['api_key']]


def kucoin(request: Request, given: Dict[str, str]) -> Expected:
    signs = given['timestamp'] + request.method + request.target + request.body
    return signs, [
        'KC-API-KEY: ' + given['api_key'],
        'KC-API-SIGN: ' + mac_base64(given['api_secret'], signs),
        'KC-API-TIMESTAMP: ' + given['timestamp'],
        'KC-API-PASSPHRASE: ' + mac_base64(given['api_secret'], given['passphrase']),
        'KC-API-KEY-VERSION: 2',
    ]


def bitget(request: Request, given: Dict[str, str]) -> Expected:
    signs = given['timestamp'] + request.method + request.target + request.body
    balance = request.path == '/api/v2/mix/account/accounts'
    return signs, [
        'ACCESS-KEY: ' + given['api_key'],
        'ACCESS-SIGN: ' + mac_base64(given['api_secret'], signs),
        'ACCESS-TIMESTAMP: ' + given['timestamp'],
        'ACCESS-PASSPHRASE: ' + given['passphrase'],
        JSON,
    ] + (['locale: en-US', 'X-CHANNEL-API-CODE: qzvtk'] if balance else [])


class Signatures(unittest.TestCase):
    maxDiff = None

    def check(self, host: str, rule: Callable[[Request, Dict[str, str]], Expected]):
        table = read_table(rule.__name__)
        self.assertGreater(len(table.requests), 0)
        for request in table.requests:
            with self.subTest(command=request.command, url=request.url):
                signs, headers = rule(request, table.given)
                self.assertTrue(request.url.startswith(host + '/'))
                self.assertEqual(request.signs, signs)
                self.assertEqual(request.headers, headers)

    def test_bybit_signs_the_query_or_the_body(self):
        self.check('https://api.bybit.com', bybit)

    def test_okx_signs_method_target_and_body(self):
        self.check('https://www.okx.com', okx)

    def test_gate_signs_five_lines_with_the_hash_of_the_body(self):
        self.check('https://api.gateio.ws', gate)

    def test_bingx_signs_the_query_and_sends_the_signature_after_it(self):
        self.check('https://open-api.bingx.com', bingx)
        table = read_table('bingx')
        for request in table.requests:
            with self.subTest(command=request.command):
                signs, _, signature = request.query.rpartition('&signature=')
                self.assertEqual(signature, mac(table.given['api_secret'], signs).hex())
                self.assertEqual(signs.rpartition('timestamp=')[2], table.given['timestamp'])

    def test_kucoin_signs_the_passphrase_too(self):
        self.check('https://api-futures.kucoin.com', kucoin)

    def test_bitget_names_language_and_channel_for_the_balance_alone(self):
        self.check('https://api.bitget.com', bitget)

    def test_only_a_post_has_a_body(self):
        for exchange in ('bybit', 'okx', 'gate', 'bingx', 'kucoin', 'bitget'):
            for request in read_table(exchange).requests:
                with self.subTest(command=request.command):
                    self.assertTrue(request.method == 'POST' or not request.body)


if __name__ == '__main__':
    unittest.main()
