#!/usr/bin/env python3
"""The typical request through the Python client, as a server page did it on Windows: a key
from a pass phrase encrypts a message, the signature key signs it, the other side checks and
decrypts; and a failure shows its error record."""

import quiv

c = quiv.constants
S = quiv.DATA_FORMAT


def main():
    print("\nPython client (late-bound through Invoke):")
    provider = quiv.Dispatch("QUIV.CProvider")
    try:
        provider.SetProviderTypeID(c.PROV_RSA_FULL)
        provider.SetProviderName(c.MS_ENHANCED_PROV)
        if not provider.LoadProvider():
            print("  LoadProvider failed:", provider.LastError)
            return 1
        ok, message = provider.GetMessageTextObject(None)
        ok, key = provider.GetSessionKeyObject(None)
        ok, signer = provider.GetSignatureKeyPairObject(None)
        print(f"  {provider.GetProviderName(None)[1]}, CRYPT_EXPORTABLE = {c.CRYPT_EXPORTABLE}")

        message.LoadMessageText("Attack at dawn.", S.STRING_VB)
        key.SetKeyAlgorithmID(c.CALG_3DES)
        key.SetKeyPhrase("my secret phrase")
        key.GenerateSessionKey()
        key.Encrypt(message)
        ok, cipher = message.UnloadMessageText(None, S.STRING_HEX)[:2]
        print(f"  \"Attack at dawn.\" under 3DES from the phrase: {cipher}")

        signer.GenerateKeyPair()
        signature = signer.Sign(message, None, S.STRING_HEX, c.CALG_SHA1).o_sSignatureBlock
        verdict = signer.VerifySignature(message, signature, S.STRING_HEX, None, c.CALG_SHA1)
        print(f"  signed (SHA-1, {len(signature) // 2} bytes), signature valid: "
              f"{verdict.o_fValid}")

        key.Decrypt(message)
        print(f"  decrypted: \"{message.UnloadMessageText(None, S.STRING_VB)[1]}\"")

        if not message.LoadMessageText("0G", S.STRING_HEX)[0]:
            record = message.LastError
            print(f"  bad hex refused, error {record.ErrNumber}: {record}")
        return 0
    finally:
        provider.TerminateAll()


if __name__ == "__main__":
    raise SystemExit(main())
