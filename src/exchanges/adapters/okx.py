"""Asks each of OKX's sites about the key and prints all answers as one JSON array."""
import base64, hashlib, hmac, json; from datetime import datetime, timezone

# Run alone:
from answer import answer
api_key, api_secret, passphrase, *sites = input().split()
# The probe:
PATHS = (
    '/api/v5/account/config',
    '/api/v5/account/balance?ccy=USDT',
    '/api/v5/account/balance',
)


def signed_headers(path):
    timestamp = datetime.now(timezone.utc).isoformat(timespec='milliseconds')
    timestamp = timestamp.replace('+00:00', 'Z')
    message = (timestamp + 'GET' + path).encode()
    digest = hmac.new(api_secret.encode(), message, hashlib.sha256).digest()
    return {
        'OK-ACCESS-KEY': api_key.encode(),
        'OK-ACCESS-SIGN': base64.b64encode(digest),
        'OK-ACCESS-TIMESTAMP': timestamp,
        'OK-ACCESS-PASSPHRASE': passphrase.encode(),
        'Content-Type': 'application/json',
        'User-Agent': 'okx-api-client/1.0',
    }


print(json.dumps([
    {'host': site, 'path': path, 'body': answer(site + path, signed_headers(path))}
    for site in sites
    for path in PATHS
]))
