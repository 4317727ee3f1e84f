"""Asks BingX about the key on two versions of one endpoint; prints a JSON array of the answers."""
import hashlib, hmac, json, time

# Run alone:
from answer import answer
api_key, api_secret, *sites = input().split()
# The probe:
PATHS = ('/openApi/swap/v3/user/balance', '/openApi/swap/v2/user/balance')


def signed_query():
    query = 'timestamp=' + str(int(time.time() * 1000))
    signature = hmac.new(api_secret.encode(), query.encode(), hashlib.sha256).hexdigest()
    return query + '&signature=' + signature


print(json.dumps([
    {
        'path': path,
        'body': answer(sites[0] + path + '?' + signed_query(), {'X-BX-APIKEY': api_key.encode()}),
    }
    for path in PATHS
]))
