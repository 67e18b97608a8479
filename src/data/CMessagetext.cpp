#include "data/CMessagetext.h"

#include <utility>

#include "data/CConvert.h"
#include "errors/ErrorTrap.h"
#include "errors/QuivError.h"
#include "provider/CProvider.h"

namespace quiv {

CMessagetext::~CMessagetext() = default;

bool CMessagetext::IsEmptyMessage() const {
  const bool boundIsZero = m_abMessage.UBound() == 0;
  const bool firstIsZero = m_abMessage.At(0) == 0;
  return boundIsZero && firstIsZero;
}

bool CMessagetext::Clear() {
  return Trap(m_oLastError, u"QUIV.CMessageText.Clear", [&] { m_abMessage.Clear(); });
}

bool CMessagetext::GetMessagetextLengthInBytes(int32_t& o_lByteLen) {
  return Trap(m_oLastError, u"QUIV.CMessageText.GetMessagetextLengthInBytes", [&] {
    o_lByteLen = IsEmptyMessage() ? 0 : static_cast<int32_t>(m_abMessage.UBound() + 1);
  });
}

bool CMessagetext::GetMessagetextLengthInChars(int32_t& o_lCharLen) {
  return Trap(m_oLastError, u"QUIV.CMessageText.GetMessagetextLengthInChars", [&] {
    // The bytes taken unchanged as UTF-16 text: a lone last byte makes no character.
    o_lCharLen = IsEmptyMessage() ? 0 : static_cast<int32_t>((m_abMessage.UBound() + 1) / 2);
  });
}

bool CMessagetext::GetMessageText(ByteArray& o_abMsgTxt) {
  return GetMessageText(o_abMsgTxt, 0);
}

bool CMessagetext::GetMessageText(ByteArray& o_abMsgTxt, size_t i_nRoom) {
  return Trap(m_oLastError, u"QUIV.CMessageText.GetMessageText", [&] {
    if (m_abMessage.UBound() == 0) RaiseQuiv(MESSAGETEXT_ERROR_OBJECT_CONTAINS_NO_MESSAGETEXT);
    if (o_abMsgTxt.Capacity() < m_abMessage.size()) {
      o_abMsgTxt.Reserve(m_abMessage.size() + i_nRoom);
    }
    o_abMsgTxt = m_abMessage;
  });
}

bool CMessagetext::SetMessageText(const ByteArray& i_abMsgTxt) {
  return Trap(m_oLastError, u"QUIV.CMessageText.SetMessageText", [&] { m_abMessage = i_abMsgTxt; });
}

bool CMessagetext::SetMessageText(ByteArray&& i_abMsgTxt) {
  return Trap(m_oLastError, u"QUIV.CMessageText.SetMessageText",
              [&] { m_abMessage = std::move(i_abMsgTxt); });
}

bool CMessagetext::ExchangeMessageText(ByteArray& io_abMsgTxt) {
  return Trap(m_oLastError, u"QUIV.CMessageText.SetMessageText",
              [&] { std::swap(m_abMessage, io_abMsgTxt); });
}

bool CMessagetext::LoadMessageText(const String& i_sMessageText, DATA_FORMAT i_nLoadFormat) {
  return Trap(m_oLastError, u"QUIV.CMessagetext.LoadMessageText", [&] {
    CConvert converter;
    if (!converter.LoadItem(i_sMessageText, i_nLoadFormat, m_abMessage)) {
      RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_LOAD);
    }
  });
}

bool CMessagetext::UnloadMessageText(String& i_sMessageText, DATA_FORMAT i_nUnloadFormat) {
  return Trap(m_oLastError, u"QUIV.CMessagetext.UnloadMessageText", [&] {
    CConvert converter;
    if (!converter.UnloadItem(m_abMessage, i_sMessageText, i_nUnloadFormat, true)) {
      RaiseQuiv(DATA_FORMAT_ERROR_UNABLE_TO_UNLOAD);
    }
  });
}

bool CMessagetext::OnStartPage(const Ref<IPageContext>& i_oScript) {
  return TrapOnStartPage(m_oLastError, u"QUIV.CMessageText.OnStartPage", i_oScript);
}

bool CMessagetext::WhatToHash(int16_t& o_nWhat) {
  // The session key's source names this routine too; callers and logs match on it.
  return Trap(m_oLastError, u"QUIV.CSessionKey.IHash_WhatToHash", [&] { o_nWhat = MESSAGETEXT; });
}

bool CMessagetext::GetDataAsByteArray(ByteArray& o_abData) {
  return Trap(m_oLastError, u"QUIV.CMessageText.IHash_GetDataAsByteArray", [&] {
    if (IsEmptyMessage()) RaiseQuiv(MESSAGETEXT_ERROR_OBJECT_CONTAINS_NO_MESSAGETEXT);
    o_abData = m_abMessage;
  });
}

bool CMessagetext::GetSessionKeyHandle(HCRYPTKEY& /*o_lSessionKeyHandle*/) {
  return Trap(m_oLastError, u"QUIV.CMessagetext.IHash_GetSessionKeyHandle", [&] {
    RaiseQuiv(KEY_ERROR_THIS_METHOD_SHOULD_ONLY_BE_CALLED_FROM_A_SESSION_KEY_OBJECT);
  });
}

bool CMessagetext::SetProvider(const Ref<CProvider>& i_oProvider) {
  return Trap(m_oLastError, u"QUIV.CMessagetext.Set Provider", [&] { m_oProvider = i_oProvider; });
}

void CMessagetext::Terminate() {
  Trap(m_oLastError, u"QUIV.CMessagetext.Class_Terminate", [&] {
    if (!m_oProvider.IsNothing()) m_oProvider.SetNothing();
    if (!m_oLastError.IsNothing()) m_oLastError.SetNothing();
  });
}

}  // namespace quiv
