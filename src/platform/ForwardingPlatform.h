// ForwardingPlatform: an IPlatform that passes every call to another IPlatform. Tests derive
// from it and override the one call whose failure they want to inject; everything else reaches
// the target unchanged:
//
//   class FailingRandom final : public ForwardingPlatform {
//    public:
//     using ForwardingPlatform::ForwardingPlatform;
//     BOOL CryptGenRandom(HCRYPTPROV, DWORD, BYTE*) override {
//       SetLastError(NTE_FAIL);
//       return FALSE;
//     }
//   };
//
// Ownership: does not own the target, which must outlive it.
#ifndef QUIV_PLATFORM_FORWARDINGPLATFORM_H
#define QUIV_PLATFORM_FORWARDINGPLATFORM_H

#include "platform/IPlatform.h"

namespace quiv::platform {

class QUIV_API ForwardingPlatform : public IPlatform {
 public:
  explicit ForwardingPlatform(IPlatform& target) : m_target(target) {}

  IPlatform& target() const { return m_target; }

  BOOL CryptAcquireContextA(HCRYPTPROV* phProv, LPCSTR szContainer, LPCSTR szProvider,
                            DWORD dwProvType, DWORD dwFlags) override;
  BOOL CryptAcquireContextW(HCRYPTPROV* phProv, LPCWSTR szContainer, LPCWSTR szProvider,
                            DWORD dwProvType, DWORD dwFlags) override;
  BOOL CryptReleaseContext(HCRYPTPROV hProv, DWORD dwFlags) override;
  BOOL CryptGetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                         DWORD dwFlags) override;
  BOOL CryptGenRandom(HCRYPTPROV hProv, DWORD dwLen, BYTE* pbBuffer) override;
  BOOL CryptGetUserKey(HCRYPTPROV hProv, DWORD dwKeySpec, HCRYPTKEY* phUserKey) override;
  BOOL CryptGenKey(HCRYPTPROV hProv, ALG_ID Algid, DWORD dwFlags, HCRYPTKEY* phKey) override;
  BOOL CryptDeriveKey(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTHASH hBaseData, DWORD dwFlags,
                      HCRYPTKEY* phKey) override;
  BOOL CryptDestroyKey(HCRYPTKEY hKey) override;
  BOOL CryptDuplicateKey(HCRYPTKEY hKey, DWORD* pdwReserved, DWORD dwFlags,
                         HCRYPTKEY* phKey) override;
  BOOL CryptGetKeyParam(HCRYPTKEY hKey, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                        DWORD dwFlags) override;
  BOOL CryptSetKeyParam(HCRYPTKEY hKey, DWORD dwParam, const BYTE* pbData, DWORD dwFlags) override;
  BOOL CryptExportKey(HCRYPTKEY hKey, HCRYPTKEY hExpKey, DWORD dwBlobType, DWORD dwFlags,
                      BYTE* pbData, DWORD* pdwDataLen) override;
  BOOL CryptImportKey(HCRYPTPROV hProv, const BYTE* pbData, DWORD dwDataLen, HCRYPTKEY hPubKey,
                      DWORD dwFlags, HCRYPTKEY* phKey) override;
  BOOL CryptEncrypt(HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL Final, DWORD dwFlags, BYTE* pbData,
                    DWORD* pdwDataLen, DWORD dwBufLen) override;
  BOOL CryptDecrypt(HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL Final, DWORD dwFlags, BYTE* pbData,
                    DWORD* pdwDataLen) override;
  BOOL CryptCreateHash(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTKEY hKey, DWORD dwFlags,
                       HCRYPTHASH* phHash) override;
  BOOL CryptHashData(HCRYPTHASH hHash, const BYTE* pbData, DWORD dwDataLen, DWORD dwFlags) override;
  BOOL CryptHashSessionKey(HCRYPTHASH hHash, HCRYPTKEY hKey, DWORD dwFlags) override;
  BOOL CryptGetHashParam(HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                         DWORD dwFlags) override;
  BOOL CryptSetHashParam(HCRYPTHASH hHash, DWORD dwParam, const BYTE* pbData,
                         DWORD dwFlags) override;
  BOOL CryptDestroyHash(HCRYPTHASH hHash) override;
  BOOL CryptDuplicateHash(HCRYPTHASH hHash, DWORD* pdwReserved, DWORD dwFlags,
                          HCRYPTHASH* phHash) override;
  BOOL CryptSignHashA(HCRYPTHASH hHash, DWORD dwKeySpec, LPCSTR sDescription, DWORD dwFlags,
                      BYTE* pbSignature, DWORD* pdwSigLen) override;
  BOOL CryptSignHashW(HCRYPTHASH hHash, DWORD dwKeySpec, LPCWSTR sDescription, DWORD dwFlags,
                      BYTE* pbSignature, DWORD* pdwSigLen) override;
  BOOL CryptVerifySignatureA(HCRYPTHASH hHash, const BYTE* pbSignature, DWORD dwSigLen,
                             HCRYPTKEY hPubKey, LPCSTR sDescription, DWORD dwFlags) override;
  BOOL CryptVerifySignatureW(HCRYPTHASH hHash, const BYTE* pbSignature, DWORD dwSigLen,
                             HCRYPTKEY hPubKey, LPCWSTR sDescription, DWORD dwFlags) override;
  DWORD GetLastError() override;
  void SetLastError(DWORD dwErrCode) override;
  BOOL GetVersionExA(OSVERSIONINFOA* lpVersionInformation) override;
  bool StartLogging(std::string_view path, LogMode mode) override;
  bool LogEvent(std::string_view text, LogEventType type) override;

 private:
  IPlatform& m_target;
};

}  // namespace quiv::platform

#endif
