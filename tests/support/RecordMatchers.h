// RecordMatchers: one way for every test to say "this call failed with that code, recorded by
// that routine". A failed call's boolean result is the truth and the object's LastError record
// holds the detail; FailedWith checks both at once and prints the record when it differs.
//
//   EXPECT_TRUE(FailedWith(ok, object->m_oLastError, QUIV_ERROR_X, "QUIV.CClass.Routine"));
#ifndef QUIV_TESTS_SUPPORT_RECORDMATCHERS_H
#define QUIV_TESTS_SUPPORT_RECORDMATCHERS_H

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "automation/Ref.h"
#include "errors/CErrHandler.h"

namespace quiv::test {

// "QUIV.CClass.Routine" as the record splits it (project, class, routine); a source without two
// dots is kept whole in the project part.
inline std::string RecordSource(const Ref<CErrHandler>& record) {
  if (record->m_sClassName.IsEmpty()) return record->m_sProjectName.ToUtf8();
  return (record->m_sProjectName + u"." + record->m_sClassName + u"." + record->m_sRoutineName)
      .ToUtf8();
}

inline ::testing::AssertionResult FailedWith(bool result, const Ref<CErrHandler>& record,
                                             int32_t code, const std::string& source) {
  if (result) return ::testing::AssertionFailure() << "the call succeeded";
  if (record.IsNothing()) return ::testing::AssertionFailure() << "no LastError record";
  const std::string got = RecordSource(record);
  if (record->m_lErrNumber != code || got != source) {
    return ::testing::AssertionFailure()
           << "recorded " << record->m_lErrNumber << " from \"" << got << "\", expected " << code
           << " from \"" << source << "\" (" << record->m_sErrDescription.ToUtf8() << ")";
  }
  return ::testing::AssertionSuccess();
}

}  // namespace quiv::test

#endif
