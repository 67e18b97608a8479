"""Load: 8 concurrent clients, 2,000 requests in all, mixing encrypt, decrypt, sign and verify
against 4 gunicorn workers that share one machine-store container."""

import hashlib
import os
import threading
import time

import pytest

import quiv
from conftest import ok, output_dir
from site_server import SiteServer, field

CLIENTS = 8
REQUESTS = 2000
STEPS = ("encrypt", "decrypt", "sign", "verify")


@pytest.fixture(scope="module")
def site(tmp_path_factory):
    # The test's own key store, so that it can open the container afterwards.
    server = SiteServer(os.environ["QUIV_KEY_STORE"], container="QUIV-Load-Test")
    server.start()
    yield server
    server.stop()


def client(site, number, count, outcome):
    """Runs `count` requests, cycling encrypt, decrypt, sign, verify on texts of its own."""
    cipher = signature = text = None
    for i in range(count):
        step = STEPS[i % 4]
        if step == "encrypt":
            text = f"client {number} message {i} " + "x" * (i % 37)
        phrase = f"phrase {number}"
        try:
            if step == "encrypt":
                _, page = site.post("/encrypt", {"text": text, "phrase": phrase})
                cipher = field(page, "ciphertext")
                good = bool(cipher)
            elif step == "decrypt":
                _, page = site.post("/decrypt", {"hex": cipher, "phrase": phrase})
                good = field(page, "plaintext") == text
            elif step == "sign":
                _, page = site.post("/sign", {"text": text})
                signature = field(page, "signature")
                good = bool(signature)
                if good:
                    outcome["signatures"].append((text, signature))
            else:
                _, page = site.post("/verify", {"text": text, "signature": signature})
                good = field(page, "verdict") == "valid"
                outcome["verified"] += good
        except Exception as error:  # a failed request is counted, not raised
            good, page = False, repr(error)
        if not good:
            outcome["failures"].append((step, page[-2000:]))
        outcome["done"] += 1


def test_load_of_2000_mixed_requests(site):
    _, page = site.get("/publickey")
    public_key = field(page, "publickey")
    outcome = {"done": 0, "failures": [], "signatures": [], "verified": 0}
    share = [REQUESTS // CLIENTS + (1 if n < REQUESTS % CLIENTS else 0) for n in range(CLIENTS)]
    threads = [threading.Thread(target=client, args=(site, n, share[n], outcome))
               for n in range(CLIENTS)]
    start = time.monotonic()
    for t in threads:
        t.start()
    for t in threads:
        t.join(timeout=1200)
    elapsed = time.monotonic() - start
    rate = outcome["done"] / elapsed

    assert outcome["done"] == REQUESTS
    assert outcome["failures"] == []
    assert outcome["verified"] == len(outcome["signatures"]) >= REQUESTS // 4 - CLIENTS
    report = (f"{REQUESTS} requests from {CLIENTS} clients to 4 workers in {elapsed:.1f} s: "
              f"{rate:.1f} requests/s, 0 failed, {outcome['verified']} signatures verified\n")
    (output_dir() / "load-test.txt").write_text(report)
    print(report)

    # Afterwards: the container is intact and still holds the key every signature was made with.
    site.stop()
    provider = quiv.Dispatch("QUIV.CProvider")
    try:
        assert ok(provider.SetProviderTypeID(quiv.constants.PROV_RSA_FULL))
        assert ok(provider.SetProviderName(quiv.constants.MS_ENHANCED_PROV))
        assert ok(provider.LoadProvider(site.container, quiv.CONTAINER_ACCESS.MULTI_USER)), \
            str(provider.LastError)
        pair = provider.GetSignatureKeyPairObject(None)[1]
        assert ok(pair.LoadKeyPair("", quiv.DATA_FORMAT.CURRENT_KEY_CONTAINER))
        assert pair.UnloadPublicKey(None, quiv.DATA_FORMAT.STRING_HEX)[1] == public_key
        message = provider.GetMessageTextObject(None)[1]
        sample = outcome["signatures"][:: max(1, len(outcome["signatures"]) // 50)]
        for text, signature in sample:
            assert ok(message.LoadMessageText(text, quiv.DATA_FORMAT.STRING_VB))
            verdict = pair.VerifySignature(message, signature, quiv.DATA_FORMAT.STRING_HEX,
                                           None, quiv.constants.CALG_SHA1)
            assert verdict.o_fValid is True, hashlib.sha1(text.encode()).hexdigest()
    finally:
        provider.TerminateAll()
