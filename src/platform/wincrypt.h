/*
 * The CryptoAPI surface of libquiv: types, constants and the functions of the software
 * cryptographic service provider, with the names and signatures Windows code expects, so that C
 * and C++ code written against CryptoAPI builds on Linux against this header and libquiv.
 *
 * Differences a porter should know:
 *  - Handles (HCRYPTPROV, HCRYPTKEY, HCRYPTHASH) are 32-bit values looked up in tables; a stale,
 *    foreign or zero handle makes the call fail with ERROR_INVALID_PARAMETER, never crash.
 *  - WCHAR is a 16-bit UTF-16 code unit (char16_t in C++), as on Windows, not wchar_t.
 *  - The narrow ("A") functions take UTF-8.
 *  - GetLastError()/SetLastError() keep one value per thread.
 */
#ifndef QUIV_PLATFORM_WINCRYPT_H
#define QUIV_PLATFORM_WINCRYPT_H

#include <stdint.h>

#include "platform/QuivExport.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef int BOOL;
typedef unsigned char BYTE;
typedef uint32_t DWORD;
typedef int32_t LONG;
typedef uint32_t ULONG;
typedef unsigned int ALG_ID;
typedef char CHAR;
#ifdef __cplusplus
typedef char16_t WCHAR;
#else
typedef uint16_t WCHAR;
#endif
typedef const CHAR* LPCSTR;
typedef CHAR* LPSTR;
typedef const WCHAR* LPCWSTR;
typedef WCHAR* LPWSTR;
typedef BYTE* PBYTE;
typedef DWORD* PDWORD;
typedef uint32_t HCRYPTPROV;
typedef uint32_t HCRYPTKEY;
typedef uint32_t HCRYPTHASH;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

/* Algorithm identifiers: class | type | sub-identifier. */
#define ALG_CLASS_ANY 0
#define ALG_CLASS_SIGNATURE (1 << 13)
#define ALG_CLASS_MSG_ENCRYPT (2 << 13)
#define ALG_CLASS_DATA_ENCRYPT (3 << 13)
#define ALG_CLASS_HASH (4 << 13)
#define ALG_CLASS_KEY_EXCHANGE (5 << 13)
#define ALG_TYPE_ANY 0
#define ALG_TYPE_DSS (1 << 9)
#define ALG_TYPE_RSA (2 << 9)
#define ALG_TYPE_BLOCK (3 << 9)
#define ALG_TYPE_STREAM (4 << 9)
#define GET_ALG_CLASS(x) ((x) & (7 << 13))
#define GET_ALG_TYPE(x) ((x) & (15 << 9))
#define GET_ALG_SID(x) ((x)&511)

#define CALG_MD2 0x8001
#define CALG_MD4 0x8002
#define CALG_MD5 0x8003
#define CALG_SHA 0x8004
#define CALG_SHA1 0x8004
#define CALG_MAC 0x8005
#define CALG_SSL3_SHAMD5 0x8008
#define CALG_HMAC 0x8009
#define CALG_TLS1PRF 0x800a
#define CALG_SHA_256 0x800c
#define CALG_SHA_384 0x800d
#define CALG_SHA_512 0x800e
#define CALG_RSA_SIGN 0x2400
#define CALG_RSA_KEYX 0xa400
#define CALG_DES 0x6601
#define CALG_RC2 0x6602
#define CALG_3DES 0x6603
#define CALG_3DES_112 0x6609
#define CALG_RC5 0x660d
#define CALG_AES_128 0x660e
#define CALG_AES_192 0x660f
#define CALG_AES_256 0x6610
#define CALG_AES 0x6611
#define CALG_RC4 0x6801

/* Provider types and names. */
#define PROV_RSA_FULL 1
#define MS_DEF_PROV_A "Microsoft Base Cryptographic Provider v1.0"
#define MS_ENHANCED_PROV_A "Microsoft Enhanced Cryptographic Provider v1.0"
#define MS_STRONG_PROV_A "Microsoft Strong Cryptographic Provider"
#define MS_DEF_PROV MS_DEF_PROV_A
#define MS_ENHANCED_PROV MS_ENHANCED_PROV_A
#define MS_STRONG_PROV MS_STRONG_PROV_A
/* The AES provider (type 24) and the name Windows XP registered it under. The wide names are
 * UTF-16 literals (C11 or C++11). */
#define PROV_RSA_AES 24
#define MS_ENH_RSA_AES_PROV_A "Microsoft Enhanced RSA and AES Cryptographic Provider"
#define MS_ENH_RSA_AES_PROV_W u"Microsoft Enhanced RSA and AES Cryptographic Provider"
#define MS_ENH_RSA_AES_PROV_XP_A "Microsoft Enhanced RSA and AES Cryptographic Provider (Prototype)"
#define MS_ENH_RSA_AES_PROV_XP_W \
  u"Microsoft Enhanced RSA and AES Cryptographic Provider (Prototype)"
#define MS_ENH_RSA_AES_PROV MS_ENH_RSA_AES_PROV_A
#define MS_ENH_RSA_AES_PROV_XP MS_ENH_RSA_AES_PROV_XP_A

/* CryptAcquireContext flags. */
#define CRYPT_VERIFYCONTEXT 0xF0000000u
#define CRYPT_NEWKEYSET 0x00000008
#define CRYPT_DELETEKEYSET 0x00000010
#define CRYPT_MACHINE_KEYSET 0x00000020
#define CRYPT_SILENT 0x00000040

/* Key specs. */
#define AT_KEYEXCHANGE 1
#define AT_SIGNATURE 2

/* Key generation / derivation / import flags (low 16 bits; the key length is in the high 16). */
#define CRYPT_EXPORTABLE 0x00000001
#define CRYPT_USER_PROTECTED 0x00000002
#define CRYPT_CREATE_SALT 0x00000004
#define CRYPT_UPDATE_KEY 0x00000008
#define CRYPT_NO_SALT 0x00000010
#define CRYPT_PREGEN 0x00000040
#define CRYPT_IPSEC_HMAC_KEY 0x00000100

/* Other call flags. */
#define CRYPT_USERDATA 1
#define CRYPT_LITTLE_ENDIAN 0x00000001
#define CRYPT_NOHASHOID 0x00000001
#define CRYPT_X931_FORMAT 0x00000004
#define CRYPT_OAEP 0x00000040
#define CRYPT_DECRYPT_RSA_NO_PADDING_CHECK 0x00000020
#define CRYPT_FIRST 1
#define CRYPT_NEXT 2
#define CRYPT_SGC_ENUM 4

/* Provider parameters. */
#define PP_ENUMALGS 1
#define PP_ENUMCONTAINERS 2
#define PP_IMPTYPE 3
#define PP_NAME 4
#define PP_VERSION 5
#define PP_CONTAINER 6
#define PP_KEYSET_SEC_DESCR 8
#define PP_PROVTYPE 16
#define PP_KEYSTORAGE 17
#define PP_ENUMALGS_EX 22
#define PP_KEYSET_TYPE 27
#define PP_SIG_KEYSIZE_INC 34
#define PP_KEYX_KEYSIZE_INC 35
#define PP_UNIQUE_CONTAINER 36
#define PP_USE_HARDWARE_RNG 38
#define PP_KEYSPEC 39
#define CRYPT_IMPL_HARDWARE 1
#define CRYPT_IMPL_SOFTWARE 2
#define CRYPT_SEC_DESCR 0x00000001

/* Key parameters. */
#define KP_IV 1
#define KP_SALT 2
#define KP_PADDING 3
#define KP_MODE 4
#define KP_MODE_BITS 5
#define KP_PERMISSIONS 6
#define KP_ALGID 7
#define KP_BLOCKLEN 8
#define KP_KEYLEN 9
#define KP_SALT_EX 10
#define KP_EFFECTIVE_KEYLEN 19
#define PKCS5_PADDING 1
#define CRYPT_MODE_CBC 1
#define CRYPT_MODE_ECB 2
#define CRYPT_MODE_OFB 3
#define CRYPT_MODE_CFB 4
#define CRYPT_MODE_CTS 5
#define CRYPT_ENCRYPT 0x0001
#define CRYPT_DECRYPT 0x0002
#define CRYPT_EXPORT 0x0004
#define CRYPT_READ 0x0008
#define CRYPT_WRITE 0x0010
#define CRYPT_MAC 0x0020

/* Hash parameters. */
#define HP_ALGID 0x0001
#define HP_HASHVAL 0x0002
#define HP_HASHSIZE 0x0004
#define HP_HMAC_INFO 0x0005

/* Key blobs. */
#define SIMPLEBLOB 0x1
#define PUBLICKEYBLOB 0x6
#define PRIVATEKEYBLOB 0x7
#define PLAINTEXTKEYBLOB 0x8
#define CUR_BLOB_VERSION 2

typedef struct _PUBLICKEYSTRUC {
  BYTE bType;
  BYTE bVersion;
  uint16_t reserved;
  ALG_ID aiKeyAlg;
} BLOBHEADER, PUBLICKEYSTRUC;

typedef struct _RSAPUBKEY {
  DWORD magic;
  DWORD bitlen;
  DWORD pubexp;
} RSAPUBKEY;

typedef struct _PROV_ENUMALGS {
  ALG_ID aiAlgid;
  DWORD dwBitLen;
  DWORD dwNameLen;
  CHAR szName[20];
} PROV_ENUMALGS;

typedef struct _PROV_ENUMALGS_EX {
  ALG_ID aiAlgid;
  DWORD dwDefaultLen;
  DWORD dwMinLen;
  DWORD dwMaxLen;
  DWORD dwProtocols;
  DWORD dwNameLen;
  CHAR szName[20];
  DWORD dwLongNameLen;
  CHAR szLongName[40];
} PROV_ENUMALGS_EX;

typedef struct _HMAC_INFO {
  ALG_ID HashAlgid;
  BYTE* pbInnerString;
  DWORD cbInnerString;
  BYTE* pbOuterString;
  DWORD cbOuterString;
} HMAC_INFO;

typedef struct _CRYPTOAPI_BLOB {
  DWORD cbData;
  BYTE* pbData;
} CRYPT_INTEGER_BLOB, CRYPT_DATA_BLOB;

typedef struct _OSVERSIONINFOA {
  DWORD dwOSVersionInfoSize;
  DWORD dwMajorVersion;
  DWORD dwMinorVersion;
  DWORD dwBuildNumber;
  DWORD dwPlatformId;
  CHAR szCSDVersion[128];
} OSVERSIONINFOA;
#define VER_PLATFORM_WIN32s 0
#define VER_PLATFORM_WIN32_WINDOWS 1
#define VER_PLATFORM_WIN32_NT 2

/* Error codes (GetLastError values). */
#define ERROR_SUCCESS 0L
#define ERROR_FILE_NOT_FOUND 2L
#define ERROR_ACCESS_DENIED 5L
#define ERROR_NOT_ENOUGH_MEMORY 8L
#define ERROR_INVALID_PARAMETER 87L
#define ERROR_MORE_DATA 234L
#define ERROR_NO_MORE_ITEMS 259L
#define ERROR_INTERNAL_ERROR 1359L
#define NTE_BAD_UID ((LONG)0x80090001)
#define NTE_BAD_HASH ((LONG)0x80090002)
#define NTE_BAD_KEY ((LONG)0x80090003)
#define NTE_BAD_LEN ((LONG)0x80090004)
#define NTE_BAD_DATA ((LONG)0x80090005)
#define NTE_BAD_SIGNATURE ((LONG)0x80090006)
#define NTE_BAD_VER ((LONG)0x80090007)
#define NTE_BAD_ALGID ((LONG)0x80090008)
#define NTE_BAD_FLAGS ((LONG)0x80090009)
#define NTE_BAD_TYPE ((LONG)0x8009000A)
#define NTE_BAD_KEY_STATE ((LONG)0x8009000B)
#define NTE_BAD_HASH_STATE ((LONG)0x8009000C)
#define NTE_NO_KEY ((LONG)0x8009000D)
#define NTE_NO_MEMORY ((LONG)0x8009000E)
#define NTE_EXISTS ((LONG)0x8009000F)
#define NTE_PERM ((LONG)0x80090010)
#define NTE_NOT_FOUND ((LONG)0x80090011)
#define NTE_DOUBLE_ENCRYPT ((LONG)0x80090012)
#define NTE_BAD_PROVIDER ((LONG)0x80090013)
#define NTE_BAD_PROV_TYPE ((LONG)0x80090014)
#define NTE_BAD_PUBLIC_KEY ((LONG)0x80090015)
#define NTE_BAD_KEYSET ((LONG)0x80090016)
#define NTE_PROV_TYPE_NOT_DEF ((LONG)0x80090017)
#define NTE_PROV_TYPE_ENTRY_BAD ((LONG)0x80090018)
#define NTE_KEYSET_NOT_DEF ((LONG)0x80090019)
#define NTE_KEYSET_ENTRY_BAD ((LONG)0x8009001A)
#define NTE_PROV_TYPE_NO_MATCH ((LONG)0x8009001B)
#define NTE_FAIL ((LONG)0x80090020)
#define NTE_SYS_ERR ((LONG)0x80090021)

/* The functions. Each returns TRUE on success; on failure FALSE with GetLastError() set. */
QUIV_API BOOL CryptAcquireContextA(HCRYPTPROV* phProv, LPCSTR szContainer, LPCSTR szProvider,
                                   DWORD dwProvType, DWORD dwFlags);
QUIV_API BOOL CryptAcquireContextW(HCRYPTPROV* phProv, LPCWSTR szContainer, LPCWSTR szProvider,
                                   DWORD dwProvType, DWORD dwFlags);
QUIV_API BOOL CryptReleaseContext(HCRYPTPROV hProv, DWORD dwFlags);
QUIV_API BOOL CryptGetProvParam(HCRYPTPROV hProv, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                                DWORD dwFlags);
QUIV_API BOOL CryptGetUserKey(HCRYPTPROV hProv, DWORD dwKeySpec, HCRYPTKEY* phUserKey);
QUIV_API BOOL CryptGenKey(HCRYPTPROV hProv, ALG_ID Algid, DWORD dwFlags, HCRYPTKEY* phKey);
QUIV_API BOOL CryptDeriveKey(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTHASH hBaseData, DWORD dwFlags,
                             HCRYPTKEY* phKey);
QUIV_API BOOL CryptDestroyKey(HCRYPTKEY hKey);
QUIV_API BOOL CryptDuplicateKey(HCRYPTKEY hKey, DWORD* pdwReserved, DWORD dwFlags,
                                HCRYPTKEY* phKey);
QUIV_API BOOL CryptGetKeyParam(HCRYPTKEY hKey, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                               DWORD dwFlags);
QUIV_API BOOL CryptSetKeyParam(HCRYPTKEY hKey, DWORD dwParam, const BYTE* pbData, DWORD dwFlags);
QUIV_API BOOL CryptExportKey(HCRYPTKEY hKey, HCRYPTKEY hExpKey, DWORD dwBlobType, DWORD dwFlags,
                             BYTE* pbData, DWORD* pdwDataLen);
QUIV_API BOOL CryptImportKey(HCRYPTPROV hProv, const BYTE* pbData, DWORD dwDataLen,
                             HCRYPTKEY hPubKey, DWORD dwFlags, HCRYPTKEY* phKey);
QUIV_API BOOL CryptEncrypt(HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL Final, DWORD dwFlags,
                           BYTE* pbData, DWORD* pdwDataLen, DWORD dwBufLen);
QUIV_API BOOL CryptDecrypt(HCRYPTKEY hKey, HCRYPTHASH hHash, BOOL Final, DWORD dwFlags,
                           BYTE* pbData, DWORD* pdwDataLen);
QUIV_API BOOL CryptGenRandom(HCRYPTPROV hProv, DWORD dwLen, BYTE* pbBuffer);
QUIV_API BOOL CryptCreateHash(HCRYPTPROV hProv, ALG_ID Algid, HCRYPTKEY hKey, DWORD dwFlags,
                              HCRYPTHASH* phHash);
QUIV_API BOOL CryptHashData(HCRYPTHASH hHash, const BYTE* pbData, DWORD dwDataLen, DWORD dwFlags);
QUIV_API BOOL CryptHashSessionKey(HCRYPTHASH hHash, HCRYPTKEY hKey, DWORD dwFlags);
QUIV_API BOOL CryptGetHashParam(HCRYPTHASH hHash, DWORD dwParam, BYTE* pbData, DWORD* pdwDataLen,
                                DWORD dwFlags);
QUIV_API BOOL CryptSetHashParam(HCRYPTHASH hHash, DWORD dwParam, const BYTE* pbData, DWORD dwFlags);
QUIV_API BOOL CryptDestroyHash(HCRYPTHASH hHash);
QUIV_API BOOL CryptDuplicateHash(HCRYPTHASH hHash, DWORD* pdwReserved, DWORD dwFlags,
                                 HCRYPTHASH* phHash);
QUIV_API BOOL CryptSignHashA(HCRYPTHASH hHash, DWORD dwKeySpec, LPCSTR sDescription, DWORD dwFlags,
                             BYTE* pbSignature, DWORD* pdwSigLen);
QUIV_API BOOL CryptSignHashW(HCRYPTHASH hHash, DWORD dwKeySpec, LPCWSTR sDescription, DWORD dwFlags,
                             BYTE* pbSignature, DWORD* pdwSigLen);
QUIV_API BOOL CryptVerifySignatureA(HCRYPTHASH hHash, const BYTE* pbSignature, DWORD dwSigLen,
                                    HCRYPTKEY hPubKey, LPCSTR sDescription, DWORD dwFlags);
QUIV_API BOOL CryptVerifySignatureW(HCRYPTHASH hHash, const BYTE* pbSignature, DWORD dwSigLen,
                                    HCRYPTKEY hPubKey, LPCWSTR sDescription, DWORD dwFlags);
QUIV_API DWORD GetLastError(void);
QUIV_API void SetLastError(DWORD dwErrCode);
QUIV_API BOOL GetVersionExA(OSVERSIONINFOA* lpVersionInformation);

#ifdef __cplusplus
}
#endif

#endif /* QUIV_PLATFORM_WINCRYPT_H */
