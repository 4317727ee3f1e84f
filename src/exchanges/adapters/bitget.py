"""Asks Bitget about the key and prints the answer as it came."""
import base64, hashlib, hmac, time

# Run alone:
from answer import answer
api_key, api_secret, passphrase, *sites = input().split()
# The probe:
TARGET = '/api/v2/mix/account/accounts?productType=USDT-FUTURES'


def signed_headers():
    timestamp = str(int(time.time() * 1000))
    message = (timestamp + 'GET' + TARGET).encode()
    digest = hmac.new(api_secret.encode(), message, hashlib.sha256).digest()
    return {
        'ACCESS-KEY': api_key.encode(),
        'ACCESS-SIGN': base64.b64encode(digest),
        'ACCESS-TIMESTAMP': timestamp,
        'ACCESS-PASSPHRASE': passphrase.encode(),
        'Content-Type': 'application/json',
        'locale': 'en-US',
        'X-CHANNEL-API-CODE': 'qzvtk',
    }


print(answer(sites[0] + TARGET, signed_headers()))
