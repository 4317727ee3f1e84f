"""What the probes share. The build puts this text in the place of each probe's import of it."""
import urllib.request


def answer(url, headers):
    """The body that a GET brings, an error's too, or else what went wrong."""
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
