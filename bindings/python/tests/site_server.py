"""Runs the example site under gunicorn for a test: 127.0.0.1, a free port, 4 workers, its own
key store, stopped by the test that started it."""

import os
import pathlib
import re
import socket
import subprocess
import time
import urllib.error
import urllib.parse
import urllib.request

from conftest import ROOT

SITE = ROOT / "examples" / "web"


def free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


class SiteServer:
    def __init__(self, key_store, container="QUIV-Web-Test", workers=4):
        self.key_store = pathlib.Path(key_store)
        self.container = container
        self.workers = workers
        self.process = None
        self.port = None
        self.log = None

    @property
    def base(self):
        return f"http://127.0.0.1:{self.port}"

    def start(self):
        env = dict(os.environ, QUIV_KEY_STORE=str(self.key_store),
                   QUIVSITE_CONTAINER=self.container,
                   PYTHONPATH=str(ROOT / "bindings" / "python"))
        for attempt in range(3):
            self.port = free_port()
            self.log = open(self.key_store.parent / f"gunicorn-{self.port}.log", "w+")
            self.process = subprocess.Popen(
                [os.environ.get("QUIV_GUNICORN", "gunicorn"), "--workers", str(self.workers),
                 "--bind", f"127.0.0.1:{self.port}", "--timeout", "120",
                 "--config", str(SITE / "gunicorn.conf.py"), "--chdir", str(SITE),
                 "quivsite:app"],
                env=env, stdout=self.log, stderr=subprocess.STDOUT)
            if self._wait_ready():
                return self
            self.stop()
        raise RuntimeError(f"gunicorn did not start:\n{self.output()}")

    def _wait_ready(self, seconds=90):
        deadline = time.monotonic() + seconds
        while time.monotonic() < deadline:
            if self.process.poll() is not None:
                return False
            try:
                with urllib.request.urlopen(self.base + "/", timeout=5) as response:
                    if response.status == 200:
                        return True
            except (urllib.error.URLError, ConnectionError, OSError):
                time.sleep(0.3)
        return False

    def output(self):
        if self.log is None:
            return ""
        self.log.flush()
        self.log.seek(0)
        return self.log.read()

    def stop(self):
        if self.process is not None and self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(timeout=60)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        self.process = None

    # -- requests ----------------------------------------------------------------------------

    def get(self, path, params=None, headers=None):
        url = self.base + path + ("?" + urllib.parse.urlencode(params) if params else "")
        return self._open(urllib.request.Request(url, headers=headers or {}))

    def post(self, path, fields, headers=None):
        data = urllib.parse.urlencode(fields).encode()
        return self._open(urllib.request.Request(self.base + path, data=data,
                                                 headers=headers or {}))

    @staticmethod
    def _open(request):
        with urllib.request.urlopen(request, timeout=120) as response:
            return response.status, response.read().decode("utf-8")


def field(page, ident):
    """The text of the element with id `ident` in a page of the site (None when absent)."""
    import html
    found = re.search(rf'id="{ident}"[^>]*>(.*?)</', page, re.S)
    return html.unescape(found.group(1)) if found else None
