#include "PublicKeyInput.h"

#include "HexText.h"
#include "InputStream.h"
#include "KeyFile.h"

namespace quiv::cli {

Ref<CRSAKeyPair> PublicKeyInput::FromFile(Session& session, const std::string& path,
                                          uint32_t algId) {
  const std::vector<uint8_t> data = ReadSmallFile(path, "public key file");
  std::vector<uint8_t> blob = KeyFile::ToBlob(data, "auto", false, "", algId);
  if (blob.empty() || blob[0] != KeyFile::kPublicKeyBlob) {
    throw CommandFailure(path + " holds no public key (a PUBLICKEYBLOB, or a PEM/DER key)");
  }
  KeyFile::SetAlgorithm(blob, algId);
  Ref<CRSAKeyPair> pair =
      session.Pair(algId == KeyFile::kRsaKeyExchange ? "exchange" : "signature");
  DATA_FORMAT hexFormat = STRING_HEX;
  if (!pair->LoadPublicKey(String::FromUtf8(HexText::Encode(blob)), hexFormat)) {
    Fail(pair, "cannot load the public key of " + path);
  }
  return pair;
}

Ref<CRSAKeyPair> PublicKeyInput::FromContainer(Session& session, const std::string& role) {
  Ref<CRSAKeyPair> pair = session.Pair(role);
  const String none;
  DATA_FORMAT fromContainer = CURRENT_KEY_CONTAINER;
  if (!pair->LoadPublicKey(none, fromContainer))
    Fail(pair, "the container has no " + role + " key pair");
  return pair;
}

}  // namespace quiv::cli
