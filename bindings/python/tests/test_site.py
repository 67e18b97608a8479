"""The example site for real: gunicorn with 4 workers on 127.0.0.1, driven over HTTP, then the
encrypt page in headless Chromium."""

import os
import subprocess
import urllib.error
import urllib.parse

import pytest

import quiv
from conftest import output_dir
from site_server import SiteServer, field

TEXT = "Meet me at the north gate at noon."
PHRASE = "correct horse battery staple"


@pytest.fixture(scope="module")
def site(tmp_path_factory):
    server = SiteServer(tmp_path_factory.mktemp("site") / "keys").start()
    yield server
    server.stop()


def test_encrypt_then_decrypt_round_trip(site):
    status, page = site.post("/encrypt", {"text": TEXT, "phrase": PHRASE,
                                          "algorithm": "CALG_3DES"})
    assert status == 200
    cipher = field(page, "ciphertext")
    assert cipher and len(cipher) % 16 == 0 and cipher == cipher.upper(), page
    status, page = site.post("/decrypt", {"hex": cipher, "phrase": PHRASE,
                                          "algorithm": "CALG_3DES"})
    assert status == 200 and field(page, "plaintext") == TEXT


def test_the_ciphertext_is_the_libraries_own(site):
    # The same request through the C++ classes in another program gives the same bytes.
    out = subprocess.run([os.environ["QUIV_TEST_REFERENCE"], TEXT, PHRASE,
                          str(quiv.constants.CALG_RC4)], capture_output=True, text=True,
                         check=True).stdout
    expected = out.split()[-1]
    _, page = site.post("/encrypt", {"text": TEXT, "phrase": PHRASE, "algorithm": "CALG_RC4"})
    assert field(page, "ciphertext") == expected


def test_sign_then_verify_and_a_tampered_signature_is_rejected(site):
    _, page = site.post("/sign", {"text": TEXT})
    signature = field(page, "signature")
    assert signature and len(signature) == 256, page
    _, page = site.post("/verify", {"text": TEXT, "signature": signature})
    assert field(page, "verdict") == "valid"
    tampered = ("0" if signature[0] != "0" else "1") + signature[1:]
    _, page = site.post("/verify", {"text": TEXT, "signature": tampered})
    assert field(page, "verdict") == "INVALID"
    _, page = site.post("/verify", {"text": TEXT + "!", "signature": signature})
    assert field(page, "verdict") == "INVALID"


def test_every_worker_signs_with_the_one_site_key(site):
    public = {field(site.get("/publickey")[1], "publickey") for _ in range(8)}
    assert len(public) == 1
    assert next(iter(public)).startswith("0602")


def test_bad_hex_shows_the_error_record_with_the_page_not_a_server_error(site):
    status, page = site.get("/decrypt", {"hex": "0G", "phrase": PHRASE},
                            headers={"Cookie": "visitor=42"})
    assert status == 200
    record = field(page, "error-record")
    assert record is not None, page
    assert record.startswith("QUIV.CMessagetext.LoadMessageText ")
    assert "DATA_FORMAT_ERROR_UNABLE_TO_LOAD" in record
    assert "Pg: /decrypt?hex=0G&phrase=" in record
    assert "WSrvr: 127.0.0.1. Cookies: visitor=42. " in record
    assert field(page, "plaintext") is None


def test_algorithms_are_listed(site):
    _, page = site.get("/algorithms")
    for code in ("CALG_3DES", "CALG_RC4", "CALG_SHA", "CALG_MD5", "CALG_RSA_SIGN"):
        assert f"<td>{code}</td>" in page


def test_an_unknown_page_is_404(site):
    with pytest.raises(urllib.error.HTTPError) as caught:
        site.get("/nowhere")
    assert caught.value.code == 404


def _chromium(*args):
    env = {k: v for k, v in os.environ.items() if k not in ("LD_PRELOAD", "ASAN_OPTIONS")}
    command = [os.environ.get("QUIV_CHROMIUM", "chromium"), "--headless", "--no-sandbox",
               "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
               "--user-data-dir=" + str(output_dir() / "chromium-profile"), *args]
    return subprocess.run(command, env=env, capture_output=True, text=True, timeout=180)


def test_the_browser_renders_the_filled_encrypt_page(site):
    out = subprocess.run([os.environ["QUIV_TEST_REFERENCE"], TEXT, PHRASE,
                          str(quiv.constants.CALG_3DES)], capture_output=True, text=True,
                         check=True).stdout
    expected = out.split()[-1]
    url = site.base + "/encrypt?" + urllib.parse.urlencode(
        {"text": TEXT, "phrase": PHRASE, "algorithm": "CALG_3DES"})
    dom = _chromium("--dump-dom", url)
    assert dom.returncode == 0, dom.stderr
    assert f'<pre id="ciphertext">{expected}</pre>' in dom.stdout
    assert f'value="{PHRASE}"' in dom.stdout  # the form shows what was sent
    shot = output_dir() / "example-site-encrypt.png"
    if shot.exists():
        shot.unlink()
    result = _chromium("--window-size=1000,800", f"--screenshot={shot}", url)
    assert result.returncode == 0, result.stderr
    assert shot.exists() and shot.stat().st_size > 5000
