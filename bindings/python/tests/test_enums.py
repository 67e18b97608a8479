"""The Python enumerations carry the values the library's own headers declare."""

import re

import quiv
from conftest import ROOT

HEADERS = ["src/data/DataFormat.h", "src/data/IHash.h", "src/keys/KeyEnums.h",
           "src/provider/ProviderEnums.h", "src/provider/AlgInfoEnums.h",
           "src/signing/SigningEnums.h"]


def _cpp_enums():
    """{enum name: {member: value}} from the C++ headers (plain integer initialisers, and the
    one static_cast of an unsigned literal)."""
    enums = {}
    for header in HEADERS:
        text = (ROOT / header).read_text()
        for name, body in re.findall(r"enum (\w+) : \w+ \{(.*?)\};", text, re.S):
            members = {}
            for member, value in re.findall(r"(\w+) = ([^,\n]+),", body):
                unsigned = re.search(r"0x([0-9A-Fa-f]+)u", value)
                number = int(unsigned.group(1), 16) if unsigned else int(value)
                members[member] = number - (1 << 32) if number >= 1 << 31 else number
            enums[name] = members
    return enums


def test_every_enumeration_matches_the_headers():
    cpp = _cpp_enums()
    python = {e.__name__: {m.name: m.value for m in e} for e in quiv.ENUMERATIONS
              if e is not quiv.QUIV_ERROR}
    assert python == cpp


def test_error_codes_match_the_error_table():
    rows = re.findall(r"QUIV_ERROR_ROW\((\w+), (-?\d+),",
                      (ROOT / "src" / "errors" / "QuivErrors.def").read_text())
    assert len(rows) == 156
    assert [(m.name, m.value) for m in quiv.QUIV_ERROR] == [(n, int(v)) for n, v in rows]
    # Consecutive from 0x80040200.
    assert [m.value for m in quiv.QUIV_ERROR] == list(range(-2147220992, -2147220992 + 156))


def test_a_member_is_usable_as_its_number():
    assert quiv.CONTAINER_ACCESS.MULTI_USER == 32
    assert quiv.CONTAINER_KEYS_ACCESS.PUBLIC_KEYS_ONLY == -268435456
    assert quiv.KEYPAIR_OBJECT_CONTAINS(3) is quiv.KEYPAIR_OBJECT_CONTAINS.NOKEYS
