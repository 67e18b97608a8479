#!/usr/bin/env python3
"""The cost of calling the library from Python: a cheap getter and the typical request through
the Python client, against the same calls through the C++ classes (quiv_python_baseline) in
the same run. Reports microseconds per call and the ratio Python / C++.

Usage: python_call_cost.py BUILD_DIR   (the bench build: BUILD_DIR/src/libquiv.so and
                                        BUILD_DIR/bench/quiv_python_baseline)
"""

import os
import pathlib
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
BATCHES = 15
BATCH_SECONDS = 0.02


def best_ns(run):
    """Best nanoseconds per call over BATCHES batches of about BATCH_SECONDS each."""
    start = time.perf_counter()
    run()
    once = time.perf_counter() - start
    batch = max(1, int(BATCH_SECONDS / max(once, 1e-9)))
    best = once
    for _ in range(BATCHES):
        start = time.perf_counter()
        for _ in range(batch):
            run()
        best = min(best, (time.perf_counter() - start) / batch)
    return best * 1e9


def python_side():
    import quiv
    c = quiv.constants
    S = quiv.DATA_FORMAT
    provider = quiv.Dispatch("QUIV.CProvider")
    provider.SetProviderTypeID(c.PROV_RSA_FULL)
    provider.SetProviderName(c.MS_ENHANCED_PROV)
    assert provider.LoadProvider(), str(provider.LastError)
    message = provider.GetMessageTextObject(None)[1]
    key = provider.GetSessionKeyObject(None)[1]
    assert key.SetKeyAlgorithmID(c.CALG_RC4) and key.GenerateSessionKey()

    def request():
        assert message.LoadMessageText("Attack at dawn.", S.STRING_VB)[0]
        assert key.SetKeyAlgorithmID(c.CALG_3DES)
        assert key.SetKeyPhrase("my secret phrase")[0]
        assert key.GenerateSessionKey()
        assert key.Encrypt(message)[0]
        assert message.UnloadMessageText(None, S.STRING_HEX)[0]

    try:
        return {"constant_getter": best_ns(lambda: c.CRYPT_EXPORTABLE),
                "key_length_getter": best_ns(lambda: key.GetKeyLength(None)),
                "typical_request": best_ns(request)}
    finally:
        provider.TerminateAll()


def cpp_side(build):
    out = subprocess.run([str(build / "bench" / "quiv_python_baseline")], check=True,
                         capture_output=True, text=True).stdout
    return {name: float(value) for name, value in (line.split() for line in out.splitlines())}


def main():
    build = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ROOT / "build" / "bench").resolve()
    os.environ.setdefault("QUIV_LIBRARY", str(build / "src" / "libquiv.so"))
    with tempfile.TemporaryDirectory() as keys:
        os.environ["QUIV_KEY_STORE"] = keys
        sys.path.insert(0, str(ROOT / "bindings" / "python"))
        before = cpp_side(build)
        python = python_side()
        after = cpp_side(build)
    cpp = {name: min(before[name], after[name]) for name in before}
    print("Python client call cost (best of batches; C++ = the same calls on the classes)")
    print(f"{'case':<20}{'Python µs':>12}{'C++ µs':>12}{'added µs':>12}{'ratio':>10}")
    for name in python:
        py, native = python[name] / 1000, cpp[name] / 1000
        print(f"{name:<20}{py:>12.2f}{native:>12.3f}{py - native:>12.2f}{py / native:>10.1f}")


if __name__ == "__main__":
    main()
