#include "platform/RealPlatform.h"

#include "platform/CspError.h"
#include "platform/ThreadLastError.h"

namespace quiv::platform {

BOOL RealPlatform::CryptAcquireContextA(HCRYPTPROV* phProv, LPCSTR szContainer, LPCSTR szProvider,
                                        DWORD dwProvType, DWORD dwFlags) {
  return ::CryptAcquireContextA(phProv, szContainer, szProvider, dwProvType, dwFlags);
}

BOOL RealPlatform::CryptAcquireContextW(HCRYPTPROV* phProv, LPCWSTR szContainer, LPCWSTR szProvider,
                                        DWORD dwProvType, DWORD dwFlags) {
  return ::CryptAcquireContextW(phProv, szContainer, szProvider, dwProvType, dwFlags);
}

BOOL RealPlatform::CryptReleaseContext(HCRYPTPROV hProv, DWORD dwFlags) {
  return ::CryptReleaseContext(hProv, dwFlags);
}

BOOL RealPlatform::CryptGetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData,
                                     DWORD* pdwDataLen, DWORD dwFlags) {
  return ::CryptGetProvParam(hProv, dwParam, pbData, pdwDataLen, dwFlags);
}

BOOL RealPlatform::CryptGenRandom(HCRYPTPROV hProv, DWORD dwLen, BYTE* pbBuffer) {
  return ::CryptGenRandom(hProv, dwLen, pbBuffer);
}

BOOL RealPlatform::CryptGetUserKey(HCRYPTPROV hProv, DWORD dwKeySpec, HCRYPTKEY* phUserKey) {
  return ::CryptGetUserKey(hProv, dwKeySpec, phUserKey);
}

BOOL RealPlatform::CryptGenKey(HCRYPTPROV hProv, ALG_ID Algid, DWORD dwFlags, HCRYPTKEY* phKey) {
  return ::CryptGenKey(hProv, Algid, dwFlags, phKey);
}

BOOL RealPlatform::CryptDeriveKey(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTHASH hBaseData,
                                  DWORD dwFlags, HCRYPTKEY* phKey) {
  return ::CryptDeriveKey(hProv, Algid, hBaseData, dwFlags, phKey);
}

BOOL RealPlatform::CryptDestroyKey(HCRYPTKEY hKey) {
  return ::CryptDestroyKey(hKey);
}

BOOL RealPlatform::CryptDuplicateKey(HCRYPTKEY hKey, DWORD* pdwReserved, DWORD dwFlags,
                                     HCRYPTKEY* phKey) {
  return ::CryptDuplicateKey(hKey, pdwReserved, dwFlags, phKey);
}

BOOL RealPlatform::CryptGetKeyParam(HCRYPTKEY hKey, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                                    DWORD dwFlags) {
  return ::CryptGetKeyParam(hKey, dwParam, pbData, pdwDataLen, dwFlags);
}

BOOL RealPlatform::CryptSetKeyParam(HCRYPTKEY hKey, DWORD dwParam, const BYTE* pbData,
                                    DWORD dwFlags) {
  return ::CryptSetKeyParam(hKey, dwParam, pbData, dwFlags);
}

BOOL RealPlatform::CryptExportKey(HCRYPTKEY hKey, HCRYPTKEY hExpKey, DWORD dwBlobType,
                                  DWORD dwFlags, BYTE* pbData, DWORD* pdwDataLen) {
  return ::CryptExportKey(hKey, hExpKey, dwBlobType, dwFlags, pbData, pdwDataLen);
}

BOOL RealPlatform::CryptImportKey(HCRYPTPROV hProv, const BYTE* pbData, DWORD dwDataLen,
                                  HCRYPTKEY hPubKey, DWORD dwFlags, HCRYPTKEY* phKey) {
  return ::CryptImportKey(hProv, pbData, dwDataLen, hPubKey, dwFlags, phKey);
}

BOOL RealPlatform::CryptEncrypt(HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL Final, DWORD dwFlags,
                                BYTE* pbData, DWORD* pdwDataLen, DWORD dwBufLen) {
  return ::CryptEncrypt(hKey, hHash, Final, dwFlags, pbData, pdwDataLen, dwBufLen);
}

BOOL RealPlatform::CryptDecrypt(HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL Final, DWORD dwFlags,
                                BYTE* pbData, DWORD* pdwDataLen) {
  return ::CryptDecrypt(hKey, hHash, Final, dwFlags, pbData, pdwDataLen);
}

BOOL RealPlatform::CryptCreateHash(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTKEY hKey, DWORD dwFlags,
                                   HCRYPTHASH* phHash) {
  return ::CryptCreateHash(hProv, Algid, hKey, dwFlags, phHash);
}

BOOL RealPlatform::CryptHashData(HCRYPTHASH hHash, const BYTE* pbData, DWORD dwDataLen,
                                 DWORD dwFlags) {
  return ::CryptHashData(hHash, pbData, dwDataLen, dwFlags);
}

BOOL RealPlatform::CryptHashSessionKey(HCRYPTHASH hHash, HCRYPTKEY hKey, DWORD dwFlags) {
  return ::CryptHashSessionKey(hHash, hKey, dwFlags);
}

BOOL RealPlatform::CryptGetHashParam(HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData,
                                     DWORD* pdwDataLen, DWORD dwFlags) {
  return ::CryptGetHashParam(hHash, dwParam, pbData, pdwDataLen, dwFlags);
}

BOOL RealPlatform::CryptSetHashParam(HCRYPTHASH hHash, DWORD dwParam, const BYTE* pbData,
                                     DWORD dwFlags) {
  return ::CryptSetHashParam(hHash, dwParam, pbData, dwFlags);
}

BOOL RealPlatform::CryptDestroyHash(HCRYPTHASH hHash) {
  return ::CryptDestroyHash(hHash);
}

BOOL RealPlatform::CryptDuplicateHash(HCRYPTHASH hHash, DWORD* pdwReserved, DWORD dwFlags,
                                      HCRYPTHASH* phHash) {
  return ::CryptDuplicateHash(hHash, pdwReserved, dwFlags, phHash);
}

BOOL RealPlatform::CryptSignHashA(HCRYPTHASH hHash, DWORD dwKeySpec, LPCSTR sDescription,
                                  DWORD dwFlags, BYTE* pbSignature, DWORD* pdwSigLen) {
  return ::CryptSignHashA(hHash, dwKeySpec, sDescription, dwFlags, pbSignature, pdwSigLen);
}

BOOL RealPlatform::CryptSignHashW(HCRYPTHASH hHash, DWORD dwKeySpec, LPCWSTR sDescription,
                                  DWORD dwFlags, BYTE* pbSignature, DWORD* pdwSigLen) {
  return ::CryptSignHashW(hHash, dwKeySpec, sDescription, dwFlags, pbSignature, pdwSigLen);
}

BOOL RealPlatform::CryptVerifySignatureA(HCRYPTHASH hHash, const BYTE* pbSignature, DWORD dwSigLen,
                                         HCRYPTKEY hPubKey, LPCSTR sDescription, DWORD dwFlags) {
  return ::CryptVerifySignatureA(hHash, pbSignature, dwSigLen, hPubKey, sDescription, dwFlags);
}

BOOL RealPlatform::CryptVerifySignatureW(HCRYPTHASH hHash, const BYTE* pbSignature, DWORD dwSigLen,
                                         HCRYPTKEY hPubKey, LPCWSTR sDescription, DWORD dwFlags) {
  return ::CryptVerifySignatureW(hHash, pbSignature, dwSigLen, hPubKey, sDescription, dwFlags);
}

DWORD RealPlatform::GetLastError() {
  return ::GetLastError();
}

void RealPlatform::SetLastError(DWORD dwErrCode) {
  ::SetLastError(dwErrCode);
}

BOOL RealPlatform::GetVersionExA(OSVERSIONINFOA* lpVersionInformation) {
  return ::GetVersionExA(lpVersionInformation);
}

namespace {

// Runs a log operation; a failure becomes the thread's last error, as a Windows call's would.
template <class F>
bool ReportingFailure(F&& operation) {
  try {
    operation();
    return true;
  } catch (const CspError& e) {
    ThreadLastError::Set(e.code());
  } catch (...) {
    ThreadLastError::Set(ERROR_NOT_ENOUGH_MEMORY);
  }
  return false;
}

}  // namespace

bool RealPlatform::StartLogging(std::string_view path, LogMode mode) {
  return ReportingFailure([&] { m_log.Start(path, mode); });
}

bool RealPlatform::LogEvent(std::string_view text, LogEventType type) {
  return ReportingFailure([&] { m_log.Write(text, type); });
}

}  // namespace quiv::platform
