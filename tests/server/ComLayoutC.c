/* quiv_com.h compiled as C: the same layout facts as the C++ test, checked at compile time, and a
 * tiny IUnknown object written in C that the C++ test calls through its vtable. */
#include <assert.h>
#include <stddef.h>

#include "server/ComLayoutFields.h"
#include "server/quiv_com.h"

QUIV_COM_CHECK_ALL()

/* The offsets as the C compiler sees them, in list order, for the C++ side to compare. */
#define QUIV_RECORD_OFFSET(type, member, offset) offsetof(type, member),
const size_t quiv_com_c_offsets[] = {QUIV_COM_OFFSETS(QUIV_RECORD_OFFSET)};
#define QUIV_RECORD_SIZE(type, size) sizeof(type),
const size_t quiv_com_c_sizes[] = {QUIV_COM_SIZES(QUIV_RECORD_SIZE)};

/* A counted object in plain C: QueryInterface answers IUnknown only. */
typedef struct CCounter {
  IUnknown base;
  ULONG refs;
} CCounter;

static HRESULT STDMETHODCALLTYPE CCounter_QueryInterface(IUnknown* self, REFIID riid, void** ppv) {
  if (ppv == NULL) return E_POINTER;
  *ppv = NULL;
  if (!IsEqualIID(riid, &IID_IUnknown)) return E_NOINTERFACE;
  *ppv = self;
  self->lpVtbl->AddRef(self);
  return S_OK;
}

static ULONG STDMETHODCALLTYPE CCounter_AddRef(IUnknown* self) {
  return ++((CCounter*)self)->refs;
}

static ULONG STDMETHODCALLTYPE CCounter_Release(IUnknown* self) {
  return --((CCounter*)self)->refs;
}

static const IUnknownVtbl kCCounterVtbl = {CCounter_QueryInterface, CCounter_AddRef,
                                           CCounter_Release};
static CCounter g_counter = {{&kCCounterVtbl}, 1};

IUnknown* quiv_com_c_counter(void) {
  return &g_counter.base;
}

/* Reads a VARIANT the C++ side filled, through the C view of the layout. */
LONG quiv_com_c_read_i4(const VARIANT* v) {
  return v->vt == VT_I4 ? v->lVal : -1;
}
