"""Asks KuCoin Futures about the key as version 2 and as version 3; prints a JSON array."""
import sys

# python3 -c searches the caller's folder too; no module from there may run beside the keys.
sys.path = [folder for folder in sys.path if folder]

import base64
import hashlib
import hmac
import json
import time
import urllib.request

api_key = ''
api_secret = ''
passphrase = ''
site = ''

ENDPOINT = '/api/v1/account-overview?currency=USDT'


def digest_of(text):
    digest = hmac.new(api_secret.encode(), text.encode(), hashlib.sha256).digest()
    return base64.b64encode(digest)


def signed_headers(key_version):
    timestamp = str(int(time.time() * 1000))
    return {
        'KC-API-KEY': api_key.encode(),
        'KC-API-SIGN': digest_of(timestamp + 'GET' + ENDPOINT),
        'KC-API-TIMESTAMP': timestamp,
        'KC-API-PASSPHRASE': digest_of(passphrase),
        'KC-API-KEY-VERSION': key_version,
        'Content-Type': 'application/json',
    }


def answer(url, headers):
    try:
        request = urllib.request.Request(url, headers=headers)
        with urllib.request.urlopen(request, timeout=15) as response:
            return response.read().decode(errors='replace')
    except ValueError:
        # The exception's own text would hold the credential.
        return 'a credential holds a character that no header can carry'
    except Exception as error:
        body = error.read().decode(errors='replace') if hasattr(error, 'read') else ''
        return body or str(error)


print(json.dumps([
    {'keyVersion': key_version, 'body': answer(site + ENDPOINT, signed_headers(key_version))}
    for key_version in ('2', '3')
]))
