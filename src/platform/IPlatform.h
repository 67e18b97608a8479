// IPlatform: the one seam between the library's classes and the platform underneath them. It has
// one virtual function per CryptoAPI function of wincrypt.h (same names, same parameters, same
// meaning of the result and of GetLastError), plus the version query and the application log
// service. The library calls the platform only through Platform(); by default that is the real
// provider (RealPlatform). Tests install a ForwardingPlatform subclass that overrides a single
// call to inject a fault, and forwards everything else (the Env/EnvWrapper model).
//
// Ownership: Platform() returns a reference to a process-wide object that is never destroyed;
// ScopedPlatformOverride installs a caller-owned object for the scope's lifetime only. Every
// implementation must be safe to call from several threads at once.
#ifndef QUIV_PLATFORM_IPLATFORM_H
#define QUIV_PLATFORM_IPLATFORM_H

#include <string_view>

#include "platform/QuivExport.h"
#include "platform/wincrypt.h"

namespace quiv::platform {

// How LogService writes: the system log (NT-family version codes) or appending to a file
// (9x-family version codes). The caller picks from GetVersionExA's answer.
enum class LogMode { SystemLog, File };

// The kind of an application log event (the event types of a Windows event log).
enum class LogEventType { Success, Error, Warning, Information };

class QUIV_API IPlatform {
 public:
  virtual ~IPlatform() = default;

  // Contexts. TRUE on success; FALSE with GetLastError() set otherwise.
  virtual BOOL CryptAcquireContextA(HCRYPTPROV* phProv, LPCSTR szContainer, LPCSTR szProvider,
                                    DWORD dwProvType, DWORD dwFlags) = 0;
  virtual BOOL CryptAcquireContextW(HCRYPTPROV* phProv, LPCWSTR szContainer, LPCWSTR szProvider,
                                    DWORD dwProvType, DWORD dwFlags) = 0;
  virtual BOOL CryptReleaseContext(HCRYPTPROV hProv, DWORD dwFlags) = 0;
  virtual BOOL CryptGetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                                 DWORD dwFlags) = 0;
  virtual BOOL CryptGenRandom(HCRYPTPROV hProv, DWORD dwLen, BYTE* pbBuffer) = 0;

  // Keys.
  virtual BOOL CryptGetUserKey(HCRYPTPROV hProv, DWORD dwKeySpec, HCRYPTKEY* phUserKey) = 0;
  virtual BOOL CryptGenKey(HCRYPTPROV hProv, ALG_ID Algid, DWORD dwFlags, HCRYPTKEY* phKey) = 0;
  virtual BOOL CryptDeriveKey(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTHASH hBaseData, DWORD dwFlags,
                              HCRYPTKEY* phKey) = 0;
  virtual BOOL CryptDestroyKey(HCRYPTKEY hKey) = 0;
  virtual BOOL CryptDuplicateKey(HCRYPTKEY hKey, DWORD* pdwReserved, DWORD dwFlags,
                                 HCRYPTKEY* phKey) = 0;
  virtual BOOL CryptGetKeyParam(HCRYPTKEY hKey, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                                DWORD dwFlags) = 0;
  virtual BOOL CryptSetKeyParam(HCRYPTKEY hKey, DWORD dwParam, const BYTE* pbData,
                                DWORD dwFlags) = 0;
  virtual BOOL CryptExportKey(HCRYPTKEY hKey, HCRYPTKEY hExpKey, DWORD dwBlobType, DWORD dwFlags,
                              BYTE* pbData, DWORD* pdwDataLen) = 0;
  virtual BOOL CryptImportKey(HCRYPTPROV hProv, const BYTE* pbData, DWORD dwDataLen,
                              HCRYPTKEY hPubKey, DWORD dwFlags, HCRYPTKEY* phKey) = 0;
  virtual BOOL CryptEncrypt(HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL Final, DWORD dwFlags,
                            BYTE* pbData, DWORD* pdwDataLen, DWORD dwBufLen) = 0;
  virtual BOOL CryptDecrypt(HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL Final, DWORD dwFlags,
                            BYTE* pbData, DWORD* pdwDataLen) = 0;

  // Hashes and signatures.
  virtual BOOL CryptCreateHash(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTKEY hKey, DWORD dwFlags,
                               HCRYPTHASH* phHash) = 0;
  virtual BOOL CryptHashData(HCRYPTHASH hHash, const BYTE* pbData, DWORD dwDataLen,
                             DWORD dwFlags) = 0;
  virtual BOOL CryptHashSessionKey(HCRYPTHASH hHash, HCRYPTKEY hKey, DWORD dwFlags) = 0;
  virtual BOOL CryptGetHashParam(HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                                 DWORD dwFlags) = 0;
  virtual BOOL CryptSetHashParam(HCRYPTHASH hHash, DWORD dwParam, const BYTE* pbData,
                                 DWORD dwFlags) = 0;
  virtual BOOL CryptDestroyHash(HCRYPTHASH hHash) = 0;
  virtual BOOL CryptDuplicateHash(HCRYPTHASH hHash, DWORD* pdwReserved, DWORD dwFlags,
                                  HCRYPTHASH* phHash) = 0;
  virtual BOOL CryptSignHashA(HCRYPTHASH hHash, DWORD dwKeySpec, LPCSTR sDescription, DWORD dwFlags,
                              BYTE* pbSignature, DWORD* pdwSigLen) = 0;
  virtual BOOL CryptSignHashW(HCRYPTHASH hHash, DWORD dwKeySpec, LPCWSTR sDescription,
                              DWORD dwFlags, BYTE* pbSignature, DWORD* pdwSigLen) = 0;
  virtual BOOL CryptVerifySignatureA(HCRYPTHASH hHash, const BYTE* pbSignature, DWORD dwSigLen,
                                     HCRYPTKEY hPubKey, LPCSTR sDescription, DWORD dwFlags) = 0;
  virtual BOOL CryptVerifySignatureW(HCRYPTHASH hHash, const BYTE* pbSignature, DWORD dwSigLen,
                                     HCRYPTKEY hPubKey, LPCWSTR sDescription, DWORD dwFlags) = 0;

  // The calling thread's last error.
  virtual DWORD GetLastError() = 0;
  virtual void SetLastError(DWORD dwErrCode) = 0;

  // The version query: TRUE and the structure filled in, FALSE (ERROR_INVALID_PARAMETER) when
  // the pointer is null or dwOSVersionInfoSize is not sizeof(OSVERSIONINFOA).
  virtual BOOL GetVersionExA(OSVERSIONINFOA* lpVersionInformation) = 0;

  // The application log. StartLogging opens the log: with LogMode::SystemLog `path` is the
  // identity under which events are logged; with LogMode::File it is the file events are
  // appended to. true on success; false with GetLastError() set (ERROR_ACCESS_DENIED when the
  // file cannot be opened for appending). LogEvent writes one event: true on success; false
  // (ERROR_INVALID_PARAMETER) when logging was not started, or the write failed.
  virtual bool StartLogging(std::string_view path, LogMode mode) = 0;
  virtual bool LogEvent(std::string_view text, LogEventType type) = 0;
};

}  // namespace quiv::platform

#endif
