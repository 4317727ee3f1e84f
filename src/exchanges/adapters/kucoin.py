"""Asks KuCoin Futures about the key as version 2 and as version 3; prints a JSON array."""
import base64, hashlib, hmac, json, time

# Run alone:
from answer import answer
api_key, api_secret, passphrase, *sites = input().split()
# The probe:
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


print(json.dumps([
    {'keyVersion': key_version, 'body': answer(sites[0] + ENDPOINT, signed_headers(key_version))}
    for key_version in ('2', '3')
]))
