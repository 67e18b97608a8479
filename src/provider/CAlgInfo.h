// CAlgInfo: a read-only, cursor-style catalogue of the algorithms a provider supports. A caller
// creates one, has the provider fill it (CProvider::GetListOfAlgorithms, which hands it the raw
// PP_ENUMALGS_EX items), may narrow it to one algorithm class, and walks it like a recordset:
// MoveFirst, then read the current record and MoveNext until Eof().
//
// The property getters and the cursor moves have no trap: a failure reaches the caller as the
// run time's error (a quiv::RuntimeError thrown from the call) and LastError is not loaded. A
// catalogue that was never filled fails every getter, move and AlgCount with run-time error 9;
// a move from a cursor outside the view fails with error 1. The automation names of Eof() and
// Bof() are EOF and BOF (EOF is a macro of the C library).
//
// Ownership: owns its records and its LastError record. Single-threaded.
#ifndef QUIV_PROVIDER_CALGINFO_H
#define QUIV_PROVIDER_CALGINFO_H

#include <cstdint>
#include <optional>
#include <vector>

#include "automation/ByteArray.h"
#include "automation/Dictionary.h"
#include "automation/IPageContext.h"
#include "automation/Object.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "errors/CErrHandler.h"
#include "platform/QuivExport.h"
#include "provider/AlgInfoEnums.h"

namespace quiv {

class CKeyTools;

class QUIV_API CAlgInfo final : public Object {
 public:
  CAlgInfo();
  ~CAlgInfo() override;

  Ref<CErrHandler> m_oLastError;

  // The current record's fields.
  int32_t AlgorithmID() const;
  String AlgorithmCode() const;
  int32_t DefaultLength() const;
  int32_t MinLength() const;
  double MaxLength() const;
  // The protocol bit mask (not a count, whatever the name says).
  int32_t NumProtocols() const;
  String ShortAlgorithmName() const;
  String LongAlgorithmName() const;

  void MoveNext();
  void MovePrevious();
  void MoveFirst();
  void MoveLast();
  bool Eof() const { return m_fEOF; }
  bool Bof() const { return m_fBOF; }
  // Records in the view.
  int32_t AlgCount() const;

  // Narrows the view to one class of CLASS_OF_ALGORITHMS_TO_SHOW (ALL_ALGORITHMS: every record),
  // always from the full list, and moves to the first record. A filter that matches nothing
  // leaves one empty record. PROVIDER_ERROR_UNKNOWN_ALGORITHM_CLASS_SPECIFIED for another value.
  bool FilterAlgorithms(int32_t i_lAlgorithms);
  bool OnStartPage(const Ref<IPageContext>& i_oScript);

  String TypeName() const override { return u"CAlgInfo"; }

 private:
  // Internal routines: the library's own classes call them, callers do not; tests reach them
  // through InternalAccess (tests/support), which is not installed.
  friend class CProvider;
  friend struct InternalAccess;

  // Fills the full list and the view from the provider's raw PP_ENUMALGS_EX items (keys 0..n-1).
  // Fails on an empty dictionary (run-time error 9), a length field with its top bit set
  // (run-time error 6) and an identifier without a code name
  // (KEY_ERROR_UNABLE_TO_GET_KEY_ALGORITHM_CODE). The cursor and Eof() are left as they were.
  bool SetAlgorithms(Dictionary& io_dItems);

  struct Record {
    int32_t m_lAlgorithmID = 0;
    String m_sAlgorithmCode;
    int32_t m_lDefaultLength = 0;
    int32_t m_lMinLength = 0;
    double m_dblMaxLength = 0;
    int32_t m_lProtocols = 0;
    String m_sShortName;
    String m_sLongName;
  };

  Record FromItem(const ByteArray& i_abItem);
  const Record& Current() const;
  // The view's upper bound; run-time error 9 when there is no view.
  int64_t UpperBound() const;
  void CheckPosition() const;
  CKeyTools& KeyTools();

  std::vector<Record> m_aFull;
  std::optional<std::vector<Record>> m_aView;
  int32_t m_lCursor = 0;
  bool m_fEOF = false;
  bool m_fBOF = false;
  Ref<CKeyTools> m_oKeyTools;
};

}  // namespace quiv

#endif
