#include "provider/CAlgInfo.h"

#include <string>

#include "automation/RunTime.h"
#include "errors/ErrorTrap.h"
#include "errors/QuivError.h"
#include "keys/CKeyTools.h"

namespace quiv {

namespace {

// A PROV_ENUMALGS_EX field, little-endian, with the run time's signed overflow check: a top
// byte of 128 or more does not fit a 32-bit signed number.
int32_t Field(const ByteArray& item, int64_t offset) {
  const uint8_t top = item.At(offset + 3);
  if (top >= 128) RaiseRuntime(kErrOverflow);
  return item.At(offset) + item.At(offset + 1) * 256 + item.At(offset + 2) * 65536 + top * 16777216;
}

// The name at `offset` whose length is at `lengthOffset`: one position more than the length is
// read (the terminating zero), each byte one character, and the text ends at the first zero.
String Name(const ByteArray& item, int64_t lengthOffset, int64_t offset) {
  const int32_t length = Field(item, lengthOffset);
  std::u16string text;
  for (int64_t i = offset; i <= offset + length; ++i) text.push_back(item.At(i));
  return String(text.substr(0, text.find(u'\0')));
}

}  // namespace

CAlgInfo::CAlgInfo() = default;
CAlgInfo::~CAlgInfo() = default;

CKeyTools& CAlgInfo::KeyTools() {
  if (m_oKeyTools.IsNothing()) m_oKeyTools = MakeRef<CKeyTools>();
  return *m_oKeyTools;
}

CAlgInfo::Record CAlgInfo::FromItem(const ByteArray& i_abItem) {
  Record record;
  record.m_lAlgorithmID = Field(i_abItem, 0);
  if (!KeyTools().KeyAlg_ID2Code(record.m_lAlgorithmID, record.m_sAlgorithmCode)) {
    RaiseQuiv(KEY_ERROR_UNABLE_TO_GET_KEY_ALGORITHM_CODE);
  }
  record.m_lDefaultLength = Field(i_abItem, 4);
  record.m_lMinLength = Field(i_abItem, 8);
  record.m_dblMaxLength = Field(i_abItem, 12);
  record.m_lProtocols = Field(i_abItem, 16);
  record.m_sShortName = Name(i_abItem, 20, 24);
  record.m_sLongName = Name(i_abItem, 44, 48);
  return record;
}

bool CAlgInfo::SetAlgorithms(Dictionary& io_dItems) {
  return Trap(m_oLastError, u"QUIV.CAlgInfo.SetAlgorithms", [&] {
    const size_t count = io_dItems.Count();
    if (count == 0) RaiseRuntime(kErrSubscriptOutOfRange);  // no array of upper bound -1
    m_aFull.assign(count, Record{});
    for (size_t i = 0; i < count; ++i) {
      m_aFull[i] = FromItem(io_dItems.Item(static_cast<int32_t>(i)).ToByteArray());
    }
    m_aView = m_aFull;
    m_fBOF = false;
  });
}

bool CAlgInfo::FilterAlgorithms(int32_t i_lAlgorithms) {
  return Trap(m_oLastError, u"QUIV.CAlgInfo.FilterAlgorithms", [&] {
    if (i_lAlgorithms != SIGNATURE_CIPHERS && i_lAlgorithms != SYMMETRIC_CIPHERS &&
        i_lAlgorithms != HASHES && i_lAlgorithms != KEY_EXCHANGE_CIPHERS &&
        i_lAlgorithms != ALL_ALGORITHMS) {
      RaiseQuiv(PROVIDER_ERROR_UNKNOWN_ALGORITHM_CLASS_SPECIFIED);
    }
    if (i_lAlgorithms == ALL_ALGORITHMS) {
      m_aView = m_aFull;
    } else {
      // A filter that matches nothing keeps one empty record, as it always has.
      std::vector<Record> view(1);
      size_t next = 0;
      for (const Record& record : m_aFull) {
        if (KeyTools().GetAlgClass(record.m_lAlgorithmID) != i_lAlgorithms) continue;
        if (next == view.size()) view.emplace_back();
        view[next++] = record;
      }
      m_aView = std::move(view);
    }
    MoveFirst();
    m_fBOF = false;
  });
}

int64_t CAlgInfo::UpperBound() const {
  if (!m_aView) RaiseRuntime(kErrSubscriptOutOfRange);
  return static_cast<int64_t>(m_aView->size()) - 1;
}

void CAlgInfo::CheckPosition() const {
  if (m_lCursor < 0 || m_lCursor > UpperBound()) RaiseRuntime(kErrApplicationDefined);
}

const CAlgInfo::Record& CAlgInfo::Current() const {
  if (m_lCursor < 0 || m_lCursor > UpperBound()) RaiseRuntime(kErrSubscriptOutOfRange);
  return (*m_aView)[static_cast<size_t>(m_lCursor)];
}

int32_t CAlgInfo::AlgorithmID() const {
  return Current().m_lAlgorithmID;
}
String CAlgInfo::AlgorithmCode() const {
  return Current().m_sAlgorithmCode;
}
int32_t CAlgInfo::DefaultLength() const {
  return Current().m_lDefaultLength;
}
int32_t CAlgInfo::MinLength() const {
  return Current().m_lMinLength;
}
double CAlgInfo::MaxLength() const {
  return Current().m_dblMaxLength;
}
int32_t CAlgInfo::NumProtocols() const {
  return Current().m_lProtocols;
}
String CAlgInfo::ShortAlgorithmName() const {
  return Current().m_sShortName;
}
String CAlgInfo::LongAlgorithmName() const {
  return Current().m_sLongName;
}

void CAlgInfo::MoveNext() {
  CheckPosition();
  if (m_fBOF) {
    m_lCursor = 0;
  } else if (m_lCursor == UpperBound()) {
    m_fEOF = true;  // the cursor stays on the last record
  } else {
    ++m_lCursor;
    m_fEOF = false;
  }
  m_fBOF = false;
}

void CAlgInfo::MovePrevious() {
  CheckPosition();
  if (m_fEOF) {
    m_lCursor = static_cast<int32_t>(UpperBound());
  } else if (m_lCursor == 0) {
    m_fBOF = true;  // the cursor stays on the first record
  } else {
    --m_lCursor;
    m_fBOF = false;
  }
  m_fEOF = false;
}

void CAlgInfo::MoveFirst() {
  m_lCursor = 0;
  m_fEOF = false;
  m_fBOF = false;
}

void CAlgInfo::MoveLast() {
  m_lCursor = static_cast<int32_t>(UpperBound());
  m_fEOF = false;
  m_fBOF = false;
}

int32_t CAlgInfo::AlgCount() const {
  return static_cast<int32_t>(UpperBound() + 1);
}

bool CAlgInfo::OnStartPage(const Ref<IPageContext>& i_oScript) {
  return TrapOnStartPage(m_oLastError, u"QUIV.CAlgInfo.OnStartPage", i_oScript);
}

}  // namespace quiv
