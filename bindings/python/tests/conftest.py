"""Shared set-up of the Python client's tests: the package from this checkout, the library
named by QUIV_LIBRARY (CTest passes this build's), and key containers and the registry in a
temporary folder so that no test touches the user's or the machine's."""

import os
import pathlib
import sys
import tempfile

import pytest

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent.parent
sys.path.insert(0, str(HERE.parent))

_scratch = tempfile.TemporaryDirectory(prefix="quiv-python-tests-")
os.environ.setdefault("QUIV_KEY_STORE", os.path.join(_scratch.name, "keys"))
os.environ.setdefault("QUIV_REGISTRY", os.path.join(_scratch.name, "registry"))

import quiv  # noqa: E402  (after the environment above)


def output_dir():
    """Where tests leave files worth keeping (screenshots): the build folder under CTest."""
    path = pathlib.Path(os.environ.get("QUIV_TEST_OUTPUT", _scratch.name))
    path.mkdir(parents=True, exist_ok=True)
    return path


def ok(values):
    """The boolean result of a call that may have come with by-reference values."""
    return values[0] if isinstance(values, tuple) else values


@pytest.fixture
def provider():
    """A provider session on the Enhanced provider in the default container."""
    p = quiv.Dispatch("QUIV.CProvider")
    c = quiv.constants
    assert ok(p.SetProviderTypeID(c.PROV_RSA_FULL))
    assert ok(p.SetProviderName(c.MS_ENHANCED_PROV))
    assert ok(p.LoadProvider()), str(p.LastError)
    yield p
    p.TerminateAll()


def take(provider, getter):
    """One of the provider's working objects; for GetListOfAlgorithms, a new CAlgInfo the
    provider fills (the caller supplies it)."""
    supplied = quiv.Dispatch("QUIV.CAlgInfo") if getter == "GetListOfAlgorithms" else None
    result, obj = getattr(provider, getter)(supplied)
    assert result, str(provider.LastError)
    return obj
