"""The late-bound client: creation by name, members by name, by-reference results, optional
parameters, conversions, object identity, the global constants and errors both ways."""

import json
import os
import subprocess
import sys

import pytest

import quiv
from conftest import ROOT, ok, take

S = quiv.DATA_FORMAT


def test_creatable_classes_are_created_by_program_id():
    for name in ("CProvider", "CAlgInfo", "CErrHandler", "CConstQUIV", "TolvaOpenSourceLicense"):
        obj = quiv.Dispatch(f"QUIV.{name}")
        assert repr(obj).startswith(f"<quiv.{name} object")


def test_create_object_is_dispatch_under_the_scripting_name():
    assert quiv.CreateObject is quiv.Dispatch
    assert repr(quiv.CreateObject("QUIV.CErrHandler")).startswith("<quiv.CErrHandler")


def test_class_id_creates_the_same_class_as_its_program_id():
    obj = quiv.Dispatch("{11005E58-1605-4823-A111-015C80BEF343}")
    assert repr(obj).startswith("<quiv.CProvider")


@pytest.mark.parametrize("name", ["CContainer", "CMessagetext", "CSessionKey", "CRSAKeyPair",
                                  "CHashValue", "IHash"])
def test_noncreatable_classes_are_refused(name):
    with pytest.raises(quiv.ComError) as caught:
        quiv.Dispatch(f"QUIV.{name}")
    assert caught.value.hresult_name == "CLASS_E_CLASSNOTAVAILABLE"


def test_an_unknown_program_id_raises():
    with pytest.raises(quiv.ComError) as caught:
        quiv.Dispatch("QUIV.CNoSuchClass")
    assert caught.value.hresult < 0


def test_every_working_object_is_obtained_by_name(provider):
    expected = {"GetContainerObject": "CContainer", "GetMessageTextObject": "CMessagetext",
                "GetSessionKeyObject": "CSessionKey", "GetExchangeKeyPairObject": "CRSAKeyPair",
                "GetSignatureKeyPairObject": "CRSAKeyPair", "GetHashValueObject": "CHashValue",
                "GetListOfAlgorithms": "CAlgInfo"}
    for getter, class_name in expected.items():
        assert repr(take(provider, getter)).startswith(f"<quiv.{class_name} ")
    assert repr(provider.LastError).startswith("<quiv.CErrHandler ")


def test_the_same_instance_is_the_same_python_object(provider):
    message = take(provider, "GetMessageTextObject")
    assert take(provider, "GetMessageTextObject") is message
    pair = take(provider, "GetExchangeKeyPairObject")
    assert pair is not take(provider, "GetSignatureKeyPairObject")
    assert provider.LastError is provider.LastError


def test_key_pair_views_are_the_pair_itself(provider):
    pair = take(provider, "GetSignatureKeyPairObject")
    assert ok(pair.GenerateKeyPair()), str(pair.LastError)
    assert pair.PublicKey is pair
    assert pair.PrivateKey is pair


def test_names_are_case_insensitive(provider):
    assert provider.getprovidername(None) == provider.GetProviderName(None)
    assert quiv.constants.crypt_exportable == 1


def test_by_reference_parameters_come_back_in_order(provider):
    name = provider.GetProviderName(None)
    assert name == (True, quiv.constants.MS_ENHANCED_PROV)
    assert name.result is True and name.o_sProvName == quiv.constants.MS_ENHANCED_PROV
    # The method trims the caller's variable; the final value comes back.
    assert provider.SetProviderTypeCode("  PROV_RSA_FULL  ") == (True, "PROV_RSA_FULL")


def test_a_method_without_by_reference_parameters_returns_its_result(provider):
    key = take(provider, "GetSessionKeyObject")
    assert key.SetKeyAlgorithmID(quiv.constants.CALG_RC4) is True
    assert key.GenerateSessionKey() is True
    assert key.GetKeyAlgorithmID(None) == (True, quiv.constants.CALG_RC4)


def test_optional_parameters_may_be_left_out_or_given_by_keyword(provider):
    assert ok(provider.LoadProvider())
    assert ok(provider.LoadProvider(i_lContainerAccess=quiv.CONTAINER_ACCESS.SINGLE_USER))
    message = take(provider, "GetMessageTextObject")
    pair = take(provider, "GetSignatureKeyPairObject")
    assert ok(pair.GenerateKeyPair())
    assert ok(message.LoadMessageText("signed", S.STRING_VB))
    # Left out, the hash algorithm is -1: MD5, which the by-reference variable receives.
    out = pair.Sign(message, None, S.STRING_HEX)
    assert out.result is True and out.i_lHashAlgID == quiv.constants.CALG_MD5
    out = pair.Sign(message, None, S.STRING_HEX, i_lHashAlgID=quiv.constants.CALG_SHA1)
    assert out.result is True and out.i_lHashAlgID == quiv.constants.CALG_SHA1


def test_unknown_keyword_is_a_type_error(provider):
    with pytest.raises(TypeError, match="no parameter 'i_nope'"):
        provider.LoadProvider(i_nope=1)


def test_strings_round_trip_including_non_latin_text(provider):
    message = take(provider, "GetMessageTextObject")
    text = "Grüße, 東京, \u0410\u0411"
    assert ok(message.LoadMessageText(text, S.STRING_VB))
    assert message.UnloadMessageText(None, S.STRING_VB)[1] == text


def test_bytes_and_bytearray_travel_as_byte_arrays(provider):
    message = take(provider, "GetMessageTextObject")
    assert ok(message.SetMessageText(b"\x00\x01\xfe\xff"))
    assert message.GetMessageText(None)[1] == b"\x00\x01\xfe\xff"
    assert ok(message.SetMessageText(bytearray(b"AB")))
    assert message.UnloadMessageText(None, S.STRING_HEX)[1] == "4142"
    assert message.GetMessagetextLengthInBytes(None) == (True, 2)


def test_integers_booleans_and_doubles(provider):
    key = take(provider, "GetSessionKeyObject")
    assert key.SetUnloadable(False)[0] is True           # bool -> VT_BOOL
    assert key.SetKeyLength(56) is True                  # int -> VT_I4
    algorithms = take(provider, "GetListOfAlgorithms")
    algorithms.MoveFirst()
    assert isinstance(algorithms.MaxLength, float)       # VT_R8 -> float
    assert isinstance(algorithms.AlgorithmID, int)
    assert isinstance(algorithms.EOF, bool)


def test_an_integer_parameter_of_16_bits_gets_a_16_bit_value(provider):
    hash_value = take(provider, "GetHashValueObject")
    message = take(provider, "GetMessageTextObject")
    assert ok(message.LoadMessageText("abc", S.STRING_VB))
    assert ok(hash_value.Hash(message)), str(hash_value.LastError)
    # o_nHashSize is a by-reference 16-bit integer: the int travels as one and comes back.
    assert hash_value.GetHashValueLengthInBytes(7) == (True, 16)  # MD5, the default
    with pytest.raises(quiv.ComError) as caught:
        hash_value.GetHashValueLengthInBytes(70000)  # no 16-bit form
    assert caught.value.hresult_name in ("DISP_E_OVERFLOW", "DISP_E_TYPEMISMATCH")
    assert caught.value.argument == "o_nHashSize"
    out = hash_value.UnloadFingerprint(None, S.STRING_VB, quiv.FINGERPRINT_FORMAT.NOFORMAT)
    assert out[0] is True and len(out[1]) == 32, str(hash_value.LastError)


def test_none_is_nothing(provider):
    pair = take(provider, "GetExchangeKeyPairObject")
    assert ok(pair.GenerateKeyPair())
    out = pair.UnloadPrivateKey(None, S.STRING_HEX, None)
    assert out[0] is True and out[1].startswith("0702")


def test_objects_pass_between_classes(provider):
    message = take(provider, "GetMessageTextObject")
    key = take(provider, "GetSessionKeyObject")
    pair = take(provider, "GetSignatureKeyPairObject")
    assert ok(pair.GenerateKeyPair())
    assert ok(message.LoadMessageText("pass me around", S.STRING_VB))
    block = pair.Sign(message, None, S.STRING_HEX, quiv.constants.CALG_SHA1).o_sSignatureBlock
    assert len(block) == 2 * 128
    verdict = pair.VerifySignature(message, block, S.STRING_HEX, None, quiv.constants.CALG_SHA1)
    assert verdict.result is True and verdict.o_fValid is True
    # The session key and the key pair's public view are hashable objects too.
    assert ok(key.GenerateSessionKey())
    assert pair.Sign(key, None, S.STRING_HEX).result is True
    assert pair.Sign(pair.PublicKey, None, S.STRING_HEX).result is True


def test_a_foreign_object_where_the_library_wants_its_own_is_a_type_mismatch(provider):
    pair = take(provider, "GetSignatureKeyPairObject")
    with pytest.raises(quiv.ComError) as caught:
        pair.Sign(quiv.PageContext({}), None, S.STRING_HEX)
    assert caught.value.hresult_name == "DISP_E_TYPEMISMATCH"


def test_constants_come_from_the_global_object_without_creating_anything():
    c = quiv.constants
    assert c is quiv.constants
    assert c.CRYPT_EXPORTABLE == 1
    assert c.CALG_SHA == c.CALG_SHA1 == 32772
    assert c.CRYPT_SUCCEED == -1
    assert c.CRYPT_VERIFYCONTEXT == -268435456
    assert c.MS_ENHANCED_PROV == "Microsoft Enhanced Cryptographic Provider v1.0"


def test_every_constant_has_the_published_value():
    # tests/constants/constants.txt: "NAME int VALUE" or "NAME string "TEXT"", slot order.
    rows = [line.split(None, 2) for line in
            (ROOT / "tests" / "constants" / "constants.txt").read_text().splitlines()
            if line.strip() and not line.startswith("#")]
    assert len(rows) == 342
    for name, kind, value in rows:
        want = value.strip('"') if kind == "string" else int(value)
        assert getattr(quiv.constants, name) == want, name


def test_enumerations_are_int_enums():
    assert quiv.DATA_FORMAT.STRING_HEX == 2
    assert isinstance(quiv.DATA_FORMAT.STRING_HEX, int)
    assert quiv.QUIV_ERROR.CERRHANDLER_ERROR == -2147220991


def test_a_failing_method_returns_false_and_fills_last_error(provider):
    message = take(provider, "GetMessageTextObject")
    out = message.LoadMessageText("0G", S.STRING_HEX)
    assert out[0] is False
    record = message.LastError
    assert record.ErrNumber == quiv.QUIV_ERROR.DATA_FORMAT_ERROR_UNABLE_TO_LOAD
    assert (record.ProjectName, record.ClassName, record.RoutineName) == \
        ("QUIV", "CMessagetext", "LoadMessageText")
    text = str(record)
    assert text.startswith("QUIV.CMessagetext.LoadMessageText ")
    assert "DATA_FORMAT_ERROR_UNABLE_TO_LOAD" in text
    assert record() == text == record.LastError()
    assert "Pg:" not in text  # no page context outside a web request


def test_error_record_fields_are_readable_and_writable():
    record = quiv.Dispatch("QUIV.CErrHandler")
    assert record.WebRedirectFlag is True
    record.Comments = "set from Python"
    assert record.Comments == "set from Python"
    record.Clear()
    assert record.WebRedirectFlag is False
    assert record.Comments == ""


def test_an_unknown_name_raises_com_error_and_attribute_error(provider):
    with pytest.raises(quiv.ComError) as caught:
        provider.NoSuchMember
    assert caught.value.hresult_name == "DISP_E_UNKNOWNNAME"
    assert isinstance(caught.value, AttributeError)
    assert not hasattr(provider, "NoSuchMember")


def test_a_wrong_argument_count_raises(provider):
    with pytest.raises(quiv.ComError) as caught:
        provider.TerminateAll(1)
    assert caught.value.hresult_name == "DISP_E_BADPARAMCOUNT"


def test_a_type_mismatch_names_the_argument(provider):
    key = take(provider, "GetSessionKeyObject")
    with pytest.raises(quiv.ComError) as caught:
        key.SetKeyAlgorithmID("not a number")
    assert caught.value.hresult_name == "DISP_E_TYPEMISMATCH"
    assert caught.value.argerr == 0
    assert caught.value.argument == "i_lKeyAlgID"


def test_a_routine_without_a_trap_raises_with_the_exception_info():
    record = quiv.Dispatch("QUIV.CErrHandler")
    record.AddParam("name", "first")
    with pytest.raises(quiv.ComError) as caught:
        record.AddParam("name", "second")
    error = caught.value
    assert error.hresult_name == "DISP_E_EXCEPTION"
    assert error.excepinfo is not None
    assert 457 in (error.excepinfo[0], error.excepinfo[5] & 0xFFFF)
    assert error.description


def test_library_not_found_names_the_places_it_looked(tmp_path):
    env = dict(os.environ, QUIV_LIBRARY=str(tmp_path / "libquiv.so"))
    code = "import quiv; quiv.Dispatch('QUIV.CProvider')"
    result = subprocess.run([sys.executable, "-c", code], env=env, capture_output=True, text=True,
                            cwd=str(ROOT / "bindings" / "python"))
    assert result.returncode != 0
    assert "LibraryNotFound" in result.stderr and str(tmp_path / "libquiv.so") in result.stderr


# -- the typical request, byte for byte with the C++ path ---------------------------------------

def _vector(name):
    data = json.loads((ROOT / "tests" / "vectors" / "windows-csp.json").read_text())
    return data["shared_inputs"][name]["hex"].upper()


def _reference(text, phrase, algid, private_key=None):
    """What the C++ classes produce for the same request (a separate program)."""
    args = [os.environ["QUIV_TEST_REFERENCE"], text, phrase, str(algid)]
    if private_key:
        args.append(private_key)
    out = subprocess.run(args, capture_output=True, text=True, check=True).stdout
    return dict(line.split(" ", 1) for line in out.splitlines())


@pytest.mark.parametrize("algorithm", ["CALG_3DES", "CALG_RC4", "CALG_RC2", "CALG_DES"])
def test_typical_request_gives_the_bytes_of_the_cpp_path(provider, algorithm):
    text, phrase = "Meet me at the north gate at noon.", "correct horse battery staple"
    algid = getattr(quiv.constants, algorithm)
    private_key = _vector("rsa512_sign_private")
    expected = _reference(text, phrase, algid, private_key)

    message = take(provider, "GetMessageTextObject")
    key = take(provider, "GetSessionKeyObject")
    pair = take(provider, "GetSignatureKeyPairObject")
    assert ok(message.LoadMessageText(text, S.STRING_VB))
    assert ok(pair.LoadKeyPair(private_key, S.STRING_HEX)), str(pair.LastError)
    signature = pair.Sign(message, None, S.STRING_HEX, quiv.constants.CALG_SHA1)
    assert signature.o_sSignatureBlock == expected["signature"]
    assert key.SetKeyAlgorithmID(algid) is True
    assert ok(key.SetKeyPhrase(phrase))
    assert key.GenerateSessionKey() is True
    assert ok(key.Encrypt(message)), str(key.LastError)
    cipher = message.UnloadMessageText(None, S.STRING_HEX)[1]
    assert cipher == expected["ciphertext"]
    assert ok(key.Decrypt(message))
    assert message.UnloadMessageText(None, S.STRING_VB)[1] == text


def test_the_registry_names_the_library_when_quiv_library_is_not_set(tmp_path):
    registry = tmp_path / "registry"
    registry.write_text("# written by the test\nquiv-registry 1\n[QUIV.CProvider]\n"
                        "clsid = {11005E58-1605-4823-A111-015C80BEF343}\nclass = CProvider\n"
                        f"library = {os.environ['QUIV_LIBRARY']}\nthreading = Apartment\n"
                        "typelib = {FC37858F-3747-44D2-8A34-C6371C2CF212}\nversion = 1.0\n")
    env = {k: v for k, v in os.environ.items() if k != "QUIV_LIBRARY"}
    env["QUIV_REGISTRY"] = str(registry)
    code = ("import quiv, quiv._library as l; p = quiv.Dispatch('QUIV.CProvider'); "
            "print(l.library().path)")
    result = subprocess.run([sys.executable, "-c", code], env=env, capture_output=True, text=True,
                            cwd=str(ROOT / "bindings" / "python"))
    assert result.returncode == 0, result.stderr
    assert result.stdout.strip() == os.environ["QUIV_LIBRARY"]
