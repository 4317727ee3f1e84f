"""Asks Bitget about the key and prints the answer as it came."""
import sys

# python3 -c searches the caller's folder too; no module from there may run beside the keys.
sys.path = [folder for folder in sys.path if folder]

import base64
import hashlib
import hmac
import time
import urllib.request

api_key = ''
api_secret = ''
passphrase = ''
site = ''

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


print(answer(site + TARGET, signed_headers()))
