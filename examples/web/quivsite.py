"""A small web site over QUIV, as a site migrating its server pages off Windows needs it:
encrypt and decrypt a text with a pass phrase, sign a text with the site's signature key and
verify a signature, show the site's public key, list the provider's algorithms.

A WSGI application (standard library only); serve it with gunicorn:

    gunicorn --workers 4 --bind 127.0.0.1:8000 --config examples/web/gunicorn.conf.py quivsite:app

Every page creates its objects with the request's page context, so an error record made during
the request names the page, the server's address and the cookies. Every failure shows the
error record. The site's signature key lives in the named container QUIVSITE_CONTAINER (default
"QUIV-Web-Example") of the machine store, shared by every worker; ensure_site_keys() creates it
on first start.
"""

import html
import os
import sys
import urllib.parse

try:
    import quiv
except ImportError:  # run from a checkout: the package lives in bindings/python
    sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "..", "bindings", "python"))
    import quiv

CONTAINER = os.environ.get("QUIVSITE_CONTAINER", "QUIV-Web-Example")
ALGORITHMS = ("CALG_3DES", "CALG_3DES_112", "CALG_DES", "CALG_RC2", "CALG_RC4")
HASH = "CALG_SHA1"
FORMAT = quiv.DATA_FORMAT


class Failure(Exception):
    """A library call returned False: the object's error record says why."""

    def __init__(self, obj, call):
        record = obj.LastError
        self.call = call
        self.message = str(record) if record is not None else ""
        self.number = record.ErrNumber if record is not None else 0
        self.source = record.ErrSource if record is not None else ""
        super().__init__(f"{call} failed: {self.message}")


def succeeded(values):
    """The boolean result of a call, whether it came alone or with by-reference values."""
    return (values[0] if isinstance(values, tuple) else values) is not False


def run(obj, method, *args):
    """Calls obj.method(*args); the tuple (result, by-reference values...) on success."""
    values = getattr(obj, method)(*args)
    values = values if isinstance(values, tuple) else (values,)
    if not succeeded(values):
        raise Failure(obj, method)
    return values


class Session:
    """One request's provider session on the site's container (machine store, shared)."""

    def __init__(self, environ):
        c = quiv.constants
        self.page = quiv.PageContext(environ)
        self.provider = quiv.Dispatch("QUIV.CProvider", page=self.page)
        run(self.provider, "SetProviderTypeID", c.PROV_RSA_FULL)
        run(self.provider, "SetProviderName", c.MS_ENHANCED_PROV)
        run(self.provider, "LoadProvider", CONTAINER, quiv.CONTAINER_ACCESS.MULTI_USER)

    def take(self, getter):
        """One of the provider's working objects, given the page as well: the web server only
        starts the objects a page creates, and the site wants every error record to name it."""
        obj = run(self.provider, getter, None)[1]
        obj.OnStartPage(self.page)
        return obj

    def close(self):
        self.provider.TerminateAll()


def ensure_site_keys():
    """Creates the site's container and signature key pair in the machine store when missing.
    Run once before the workers start (gunicorn.conf.py does)."""
    c = quiv.constants
    provider = quiv.Dispatch("QUIV.CProvider")
    try:
        run(provider, "SetProviderTypeID", c.PROV_RSA_FULL)
        run(provider, "SetProviderName", c.MS_ENHANCED_PROV)
        created = not succeeded(
            provider.LoadProvider(CONTAINER, quiv.CONTAINER_ACCESS.MULTI_USER))
        if created:
            # A context without a container (public keys only) is enough to create one.
            run(provider, "LoadProvider", "", quiv.CONTAINER_ACCESS.SINGLE_USER,
                quiv.CONTAINER_KEYS_ACCESS.PUBLIC_KEYS_ONLY)
            containers = run(provider, "GetContainerObject", None)[1]
            run(containers, "NewContainer", CONTAINER, quiv.CONTAINER_ACCESS.MULTI_USER)
        containers = run(provider, "GetContainerObject", None)[1]
        has_key = run(containers, "CheckForSignatureKeyPair", None)[1]
        if not has_key:
            signature = run(provider, "GetSignatureKeyPairObject", None)[1]
            run(signature, "GenerateKeyPair")
        return created or not has_key
    finally:
        provider.TerminateAll()


# -- pages -------------------------------------------------------------------------------------

def _phrase_key(session, form, text, text_format):
    """The message loaded with `text` and the session key derived from the form's phrase."""
    message = session.take("GetMessageTextObject")
    key = session.take("GetSessionKeyObject")
    run(message, "LoadMessageText", text, text_format)
    run(key, "SetKeyAlgorithmID", getattr(quiv.constants, _algorithm(form)))
    run(key, "SetKeyPhrase", form.get("phrase", ""))
    run(key, "GenerateSessionKey")
    return message, key


def encrypt(session, form):
    message, key = _phrase_key(session, form, form.get("text", ""), FORMAT.STRING_VB)
    run(key, "Encrypt", message)
    return run(message, "UnloadMessageText", None, FORMAT.STRING_HEX)[1]


def decrypt(session, form):
    message, key = _phrase_key(session, form, form.get("hex", "").strip(), FORMAT.STRING_HEX)
    run(key, "Decrypt", message)
    return run(message, "UnloadMessageText", None, FORMAT.STRING_VB)[1]


def _site_signature_pair(session):
    pair = session.take("GetSignatureKeyPairObject")
    run(pair, "LoadKeyPair", "", FORMAT.CURRENT_KEY_CONTAINER)
    return pair


def sign(session, form):
    message = session.take("GetMessageTextObject")
    run(message, "LoadMessageText", form.get("text", ""), FORMAT.STRING_VB)
    pair = _site_signature_pair(session)
    out = run(pair, "Sign", message, None, FORMAT.STRING_HEX, getattr(quiv.constants, HASH))
    return out.o_sSignatureBlock


def verify(session, form):
    message = session.take("GetMessageTextObject")
    run(message, "LoadMessageText", form.get("text", ""), FORMAT.STRING_VB)
    pair = _site_signature_pair(session)
    out = run(pair, "VerifySignature", message, form.get("signature", "").strip(),
              FORMAT.STRING_HEX, None, getattr(quiv.constants, HASH))
    return out.o_fValid


def public_key(session):
    pair = _site_signature_pair(session)
    return run(pair, "UnloadPublicKey", None, FORMAT.STRING_HEX)[1]


def algorithms(session):
    # The provider fills the catalogue it is given.
    info = quiv.Dispatch("QUIV.CAlgInfo", page=session.page)
    run(session.provider, "GetListOfAlgorithms", info)
    rows = []
    info.MoveFirst()
    while not info.EOF:
        rows.append((info.AlgorithmCode, info.AlgorithmID, info.DefaultLength, info.MinLength,
                     int(info.MaxLength), info.LongAlgorithmName))
        info.MoveNext()
    return rows


def _algorithm(form):
    name = form.get("algorithm") or ALGORITHMS[0]
    if name not in ALGORITHMS:
        raise ValueError(f"unknown algorithm {name!r}")
    return name


# -- HTML --------------------------------------------------------------------------------------

STYLE = """body{font-family:sans-serif;max-width:52em;margin:2em auto;padding:0 1em;color:#222}
nav a{margin-right:1em}label{display:block;margin-top:.8em}textarea,input[type=text],select{
width:100%;box-sizing:border-box;font-family:monospace}textarea{height:6em}
.result{background:#eef6ee;border:1px solid #9c9;padding:.6em;word-break:break-all}
.error{background:#fbeaea;border:1px solid #c99;padding:.6em;word-break:break-all}
pre{white-space:pre-wrap;word-break:break-all;margin:.3em 0}table{border-collapse:collapse}td,th{border:1px solid #ccc;padding:.2em .5em;text-align:left}"""

PAGES = (("/encrypt", "Encrypt"), ("/decrypt", "Decrypt"), ("/sign", "Sign"),
         ("/verify", "Verify"), ("/publickey", "Public key"), ("/algorithms", "Algorithms"))


def e(value):
    return html.escape(str(value), quote=True)


def layout(title, body):
    nav = "".join(f'<a href="{path}">{e(name)}</a>' for path, name in PAGES)
    return (f'<!DOCTYPE html><html lang="en"><head><meta charset="utf-8"><title>{e(title)} - '
            f'QUIV example site</title><style>{STYLE}</style></head><body><nav>{nav}</nav>'
            f"<h1>{e(title)}</h1>{body}</body></html>")


def field(name, label, form, area=False):
    value = e(form.get(name, ""))
    if area:
        return f'<label for="{name}">{label}</label><textarea id="{name}" name="{name}">' \
               f"{value}</textarea>"
    return f'<label for="{name}">{label}</label><input type="text" id="{name}" name="{name}" ' \
           f'value="{value}">'


def algorithm_field(form):
    chosen = form.get("algorithm") or ALGORITHMS[0]
    options = "".join(f'<option{" selected" if a == chosen else ""}>{a}</option>'
                      for a in ALGORITHMS)
    return f'<label for="algorithm">Algorithm</label><select id="algorithm" name="algorithm">' \
           f"{options}</select>"


def form_page(action, fields, submit):
    return f'<form method="post" action="{action}">{"".join(fields)}' \
           f'<p><button type="submit">{submit}</button></p></form>'


def result_box(label, value, ident="result"):
    return f'<div class="result"><strong>{e(label)}</strong><pre id="{ident}">{e(value)}</pre></div>'


def error_box(failure):
    return (f'<div class="error" id="error"><strong>{e(failure.call)} failed</strong>'
            f'<p>Error {e(failure.number)} from {e(failure.source)}</p>'
            f'<pre id="error-record">{e(failure.message)}</pre></div>')


def read_form(environ):
    fields = urllib.parse.parse_qs(environ.get("QUERY_STRING", ""), keep_blank_values=True)
    if environ.get("REQUEST_METHOD") == "POST":
        try:
            size = int(environ.get("CONTENT_LENGTH") or 0)
        except ValueError:
            size = 0
        body = environ["wsgi.input"].read(min(size, 1 << 20)).decode("utf-8", "replace")
        fields.update(urllib.parse.parse_qs(body, keep_blank_values=True))
    return {k: v[-1] for k, v in fields.items()}


def _verdict(session, form):
    return "valid" if verify(session, form) else "INVALID"


# The form pages: path -> (title, fields, button, work, result label, result element id).
# Fields are (name, label, multi-line); an "algorithm" field is the cipher chooser.
FORMS = {
    "/encrypt": ("Encrypt a text",
                 (("text", "Text", True), ("phrase", "Pass phrase", False), ("algorithm",)),
                 "Encrypt", encrypt, "Ciphertext (hex)", "ciphertext"),
    "/decrypt": ("Decrypt a text",
                 (("hex", "Ciphertext (hex)", True), ("phrase", "Pass phrase", False),
                  ("algorithm",)),
                 "Decrypt", decrypt, "Text", "plaintext"),
    "/sign": ("Sign with the site's key", (("text", "Text", True),), "Sign", sign,
              "Signature (hex, SHA-1)", "signature"),
    "/verify": ("Verify a signature",
                (("text", "Text", True), ("signature", "Signature (hex)", True)),
                "Verify", _verdict, "Verdict", "verdict"),
}


def form_view(path, form, environ):
    """A form page; the library's work runs only when the form was sent."""
    title, fields, button, work, label, ident = FORMS[path]
    inputs = [algorithm_field(form) if f[0] == "algorithm" else field(f[0], f[1], form, f[2])
              for f in fields]
    body = form_page(path, inputs, button)
    if form:
        body += with_session(environ, lambda s: result_box(label, work(s, form), ident))
    return "200 OK", title, body


def algorithms_table(session):
    rows = "".join("<tr>" + "".join(f"<td>{e(v)}</td>" for v in row) + "</tr>"
                   for row in algorithms(session))
    return ('<table id="algorithms"><tr><th>Code</th><th>Id</th><th>Default bits</th>'
            f"<th>Min</th><th>Max</th><th>Name</th></tr>{rows}</table>")


def render(path, form, environ):
    """(status, title, body) of a page."""
    if path in ("/", "/index"):
        items = "".join(f'<li><a href="{p}">{e(n)}</a></li>' for p, n in PAGES)
        return "200 OK", "QUIV example site", f"<ul>{items}</ul>"
    if path in FORMS:
        return form_view(path, form, environ)
    if path == "/publickey":
        return "200 OK", "The site's public signature key", with_session(
            environ, lambda s: result_box("PUBLICKEYBLOB (hex)", public_key(s), "publickey"))
    if path == "/algorithms":
        return "200 OK", "The provider's algorithms", with_session(environ, algorithms_table)
    return "404 Not Found", "Not found", f"<p>No page {e(path)}.</p>"


def with_session(environ, work):
    session = None
    try:
        session = Session(environ)
        return work(session)
    except Failure as failure:
        return error_box(failure)
    except ValueError as error:
        return f'<div class="error" id="error">{e(error)}</div>'
    finally:
        if session is not None:
            session.close()


def app(environ, start_response):
    path = environ.get("PATH_INFO", "/") or "/"
    status, title, body = render(path, read_form(environ), environ)
    page = layout(title, body).encode("utf-8")
    start_response(status, [("Content-Type", "text/html; charset=utf-8"),
                            ("Content-Length", str(len(page)))])
    return [page]
