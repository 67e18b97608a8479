// The standard interface identifiers the automation layer answers to. Their values are fixed by
// the platform: every client compares against these exact bytes.
#include "server/quiv_com.h"

extern "C" {

// The well-known OLE identifiers share the tail C000-000000000046.
#define QUIV_OLE_IID(name, data1) \
  const IID name = {data1, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}}

const IID GUID_NULL = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};
const IID IID_NULL = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};
QUIV_OLE_IID(IID_IUnknown, 0x00000000);
QUIV_OLE_IID(IID_IClassFactory, 0x00000001);
QUIV_OLE_IID(IID_IDispatch, 0x00020400);
QUIV_OLE_IID(IID_ITypeInfo, 0x00020401);
QUIV_OLE_IID(IID_ITypeLib, 0x00020402);
QUIV_OLE_IID(IID_ITypeComp, 0x00020403);

#undef QUIV_OLE_IID
}
