"""Asks BingX about the key on two versions of one endpoint; prints a JSON array of the answers."""
import sys

# python3 -c searches the caller's folder too; no module from there may run beside the keys.
sys.path = [folder for folder in sys.path if folder]

import hashlib
import hmac
import json
import time

from answer import answer

api_key = ''
api_secret = ''
site = ''

PATHS = ('/openApi/swap/v3/user/balance', '/openApi/swap/v2/user/balance')


def signed_query():
    query = 'timestamp=' + str(int(time.time() * 1000))
    signature = hmac.new(api_secret.encode(), query.encode(), hashlib.sha256).hexdigest()
    return query + '&signature=' + signature


print(json.dumps([
    {
        'path': path,
        'body': answer(site + path + '?' + signed_query(), {'X-BX-APIKEY': api_key.encode()}),
    }
    for path in PATHS
]))
