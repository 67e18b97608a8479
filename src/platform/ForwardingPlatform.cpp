#include "platform/ForwardingPlatform.h"

namespace quiv::platform {

BOOL ForwardingPlatform::CryptAcquireContextA(HCRYPTPROV* phProv, LPCSTR szContainer,
                                              LPCSTR szProvider, DWORD dwProvType, DWORD dwFlags) {
  return m_target.CryptAcquireContextA(phProv, szContainer, szProvider, dwProvType, dwFlags);
}

BOOL ForwardingPlatform::CryptAcquireContextW(HCRYPTPROV* phProv, LPCWSTR szContainer,
                                              LPCWSTR szProvider, DWORD dwProvType, DWORD dwFlags) {
  return m_target.CryptAcquireContextW(phProv, szContainer, szProvider, dwProvType, dwFlags);
}

BOOL ForwardingPlatform::CryptReleaseContext(HCRYPTPROV hProv, DWORD dwFlags) {
  return m_target.CryptReleaseContext(hProv, dwFlags);
}

BOOL ForwardingPlatform::CryptGetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData,
                                           DWORD* pdwDataLen, DWORD dwFlags) {
  return m_target.CryptGetProvParam(hProv, dwParam, pbData, pdwDataLen, dwFlags);
}

BOOL ForwardingPlatform::CryptGenRandom(HCRYPTPROV hProv, DWORD dwLen, BYTE* pbBuffer) {
  return m_target.CryptGenRandom(hProv, dwLen, pbBuffer);
}

BOOL ForwardingPlatform::CryptGetUserKey(HCRYPTPROV hProv, DWORD dwKeySpec, HCRYPTKEY* phUserKey) {
  return m_target.CryptGetUserKey(hProv, dwKeySpec, phUserKey);
}

BOOL ForwardingPlatform::CryptGenKey(HCRYPTPROV hProv, ALG_ID Algid, DWORD dwFlags,
                                     HCRYPTKEY* phKey) {
  return m_target.CryptGenKey(hProv, Algid, dwFlags, phKey);
}

BOOL ForwardingPlatform::CryptDeriveKey(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTHASH hBaseData,
                                        DWORD dwFlags, HCRYPTKEY* phKey) {
  return m_target.CryptDeriveKey(hProv, Algid, hBaseData, dwFlags, phKey);
}

BOOL ForwardingPlatform::CryptDestroyKey(HCRYPTKEY hKey) {
  return m_target.CryptDestroyKey(hKey);
}

BOOL ForwardingPlatform::CryptDuplicateKey(HCRYPTKEY hKey, DWORD* pdwReserved, DWORD dwFlags,
                                           HCRYPTKEY* phKey) {
  return m_target.CryptDuplicateKey(hKey, pdwReserved, dwFlags, phKey);
}

BOOL ForwardingPlatform::CryptGetKeyParam(HCRYPTKEY hKey, DWORD dwParam, BYTE* pbData,
                                          DWORD* pdwDataLen, DWORD dwFlags) {
  return m_target.CryptGetKeyParam(hKey, dwParam, pbData, pdwDataLen, dwFlags);
}

BOOL ForwardingPlatform::CryptSetKeyParam(HCRYPTKEY hKey, DWORD dwParam, const BYTE* pbData,
                                          DWORD dwFlags) {
  return m_target.CryptSetKeyParam(hKey, dwParam, pbData, dwFlags);
}

BOOL ForwardingPlatform::CryptExportKey(HCRYPTKEY hKey, HCRYPTKEY hExpKey, DWORD dwBlobType,
                                        DWORD dwFlags, BYTE* pbData, DWORD* pdwDataLen) {
  return m_target.CryptExportKey(hKey, hExpKey, dwBlobType, dwFlags, pbData, pdwDataLen);
}

BOOL ForwardingPlatform::CryptImportKey(HCRYPTPROV hProv, const BYTE* pbData, DWORD dwDataLen,
                                        HCRYPTKEY hPubKey, DWORD dwFlags, HCRYPTKEY* phKey) {
  return m_target.CryptImportKey(hProv, pbData, dwDataLen, hPubKey, dwFlags, phKey);
}

BOOL ForwardingPlatform::CryptEncrypt(HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL Final, DWORD dwFlags,
                                      BYTE* pbData, DWORD* pdwDataLen, DWORD dwBufLen) {
  return m_target.CryptEncrypt(hKey, hHash, Final, dwFlags, pbData, pdwDataLen, dwBufLen);
}

BOOL ForwardingPlatform::CryptDecrypt(HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL Final, DWORD dwFlags,
                                      BYTE* pbData, DWORD* pdwDataLen) {
  return m_target.CryptDecrypt(hKey, hHash, Final, dwFlags, pbData, pdwDataLen);
}

BOOL ForwardingPlatform::CryptCreateHash(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTKEY hKey,
                                         DWORD dwFlags, HCRYPTHASH* phHash) {
  return m_target.CryptCreateHash(hProv, Algid, hKey, dwFlags, phHash);
}

BOOL ForwardingPlatform::CryptHashData(HCRYPTHASH hHash, const BYTE* pbData, DWORD dwDataLen,
                                       DWORD dwFlags) {
  return m_target.CryptHashData(hHash, pbData, dwDataLen, dwFlags);
}

BOOL ForwardingPlatform::CryptHashSessionKey(HCRYPTHASH hHash, HCRYPTKEY hKey, DWORD dwFlags) {
  return m_target.CryptHashSessionKey(hHash, hKey, dwFlags);
}

BOOL ForwardingPlatform::CryptGetHashParam(HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData,
                                           DWORD* pdwDataLen, DWORD dwFlags) {
  return m_target.CryptGetHashParam(hHash, dwParam, pbData, pdwDataLen, dwFlags);
}

BOOL ForwardingPlatform::CryptSetHashParam(HCRYPTHASH hHash, DWORD dwParam, const BYTE* pbData,
                                           DWORD dwFlags) {
  return m_target.CryptSetHashParam(hHash, dwParam, pbData, dwFlags);
}

BOOL ForwardingPlatform::CryptDestroyHash(HCRYPTHASH hHash) {
  return m_target.CryptDestroyHash(hHash);
}

BOOL ForwardingPlatform::CryptDuplicateHash(HCRYPTHASH hHash, DWORD* pdwReserved, DWORD dwFlags,
                                            HCRYPTHASH* phHash) {
  return m_target.CryptDuplicateHash(hHash, pdwReserved, dwFlags, phHash);
}

BOOL ForwardingPlatform::CryptSignHashA(HCRYPTHASH hHash, DWORD dwKeySpec, LPCSTR sDescription,
                                        DWORD dwFlags, BYTE* pbSignature, DWORD* pdwSigLen) {
  return m_target.CryptSignHashA(hHash, dwKeySpec, sDescription, dwFlags, pbSignature, pdwSigLen);
}

BOOL ForwardingPlatform::CryptSignHashW(HCRYPTHASH hHash, DWORD dwKeySpec, LPCWSTR sDescription,
                                        DWORD dwFlags, BYTE* pbSignature, DWORD* pdwSigLen) {
  return m_target.CryptSignHashW(hHash, dwKeySpec, sDescription, dwFlags, pbSignature, pdwSigLen);
}

BOOL ForwardingPlatform::CryptVerifySignatureA(HCRYPTHASH hHash, const BYTE* pbSignature,
                                               DWORD dwSigLen, HCRYPTKEY hPubKey,
                                               LPCSTR sDescription, DWORD dwFlags) {
  return m_target.CryptVerifySignatureA(hHash, pbSignature, dwSigLen, hPubKey, sDescription,
                                        dwFlags);
}

BOOL ForwardingPlatform::CryptVerifySignatureW(HCRYPTHASH hHash, const BYTE* pbSignature,
                                               DWORD dwSigLen, HCRYPTKEY hPubKey,
                                               LPCWSTR sDescription, DWORD dwFlags) {
  return m_target.CryptVerifySignatureW(hHash, pbSignature, dwSigLen, hPubKey, sDescription,
                                        dwFlags);
}

DWORD ForwardingPlatform::GetLastError() {
  return m_target.GetLastError();
}

void ForwardingPlatform::SetLastError(DWORD dwErrCode) {
  m_target.SetLastError(dwErrCode);
}

BOOL ForwardingPlatform::GetVersionExA(OSVERSIONINFOA* lpVersionInformation) {
  return m_target.GetVersionExA(lpVersionInformation);
}

bool ForwardingPlatform::StartLogging(std::string_view path, LogMode mode) {
  return m_target.StartLogging(path, mode);
}

bool ForwardingPlatform::LogEvent(std::string_view text, LogEventType type) {
  return m_target.LogEvent(text, type);
}

}  // namespace quiv::platform
