// A provider session through the library's objects, as a script would run it.
#include <cstdio>
#include <string>

#include "DemoParts.h"
#include "automation/Dictionary.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "data/CMessagetext.h"
#include "provider/CAlgInfo.h"
#include "provider/CContainer.h"
#include "provider/CProvider.h"
// After any platform header: the catalogue's getters share their names with the C macros.
#include "constants/CConstQUIV.h"

namespace quiv::demo {

namespace {

std::string Text(const String& value) {
  return value.ToUtf8();
}

// A failed call: the object's LastError record holds the assembled message.
bool Failed(bool ok, const Ref<CErrHandler>& record) {
  if (!ok) std::printf("  failed: %s\n", Text(record->LastError()).c_str());
  return !ok;
}

void ShowFacts(const Ref<CProvider>& provider) {
  String name, code, version, implementation;
  int32_t type = 0;
  if (Failed(provider->GetProviderName(name), provider->m_oLastError)) return;
  provider->GetProviderTypeID(type);
  provider->GetProviderTypeCode(code);
  provider->GetProviderVersion(version);
  provider->GetProviderImplementation(implementation);
  std::printf("  provider %s\n", Text(name).c_str());
  std::printf("  type %d (%s), version %s, implementation %s\n", type, Text(code).c_str(),
              Text(version).c_str(), Text(implementation).c_str());
}

void ShowContainers(const Ref<CProvider>& provider) {
  Ref<CContainer> container;
  if (Failed(provider->GetContainerObject(container), provider->m_oLastError)) return;
  String current;
  container->GetContainerName(current);
  std::printf("  open container: %s\n", Text(current).c_str());
  const String name = u"QUIV demo session";
  if (Failed(container->NewContainer(name, SINGLE_USER), container->m_oLastError)) return;
  bool exists = false;
  container->CheckForContainer(name, exists);
  Dictionary list;
  container->GetListOfContainers(list);
  std::printf("  created \"%s\" (found: %s); the store now holds %zu container(s):\n",
              Text(name).c_str(), exists ? "yes" : "no", list.Count());
  for (size_t i = 0; i < list.Count(); ++i) {
    std::printf("    %s\n", Text(list.Item(static_cast<int16_t>(i)).TextForm()).c_str());
  }
  if (Failed(container->DeleteContainer(name), container->m_oLastError)) return;
  // A deletion leaves the provider without a context: open the default container again.
  if (Failed(provider->LoadProvider(), provider->m_oLastError)) return;
  container->CheckForContainer(name, exists);
  std::printf("  deleted it again (found: %s)\n", exists ? "yes" : "no");
}

void ShowAlgorithms(const Ref<CProvider>& provider) {
  Ref<CAlgInfo> algorithms = MakeRef<CAlgInfo>();
  if (Failed(provider->GetListOfAlgorithms(algorithms), provider->m_oLastError)) return;
  std::printf("  %d algorithms:\n", algorithms->AlgCount());
  algorithms->MoveFirst();
  while (!algorithms->Eof()) {
    std::printf("    %-18s %-32s %5d bits (%d..%.0f)\n", Text(algorithms->AlgorithmCode()).c_str(),
                Text(algorithms->LongAlgorithmName()).c_str(), algorithms->DefaultLength(),
                algorithms->MinLength(), algorithms->MaxLength());
    algorithms->MoveNext();
  }
  algorithms->FilterAlgorithms(HASHES);
  std::printf("  of which hashes: %d\n", algorithms->AlgCount());
}

void ShowMessageRoundTrip(const Ref<CProvider>& provider) {
  Ref<CMessagetext> message;
  if (Failed(provider->GetMessageTextObject(message), provider->m_oLastError)) return;
  if (Failed(message->LoadMessageText(u"Hello from QUIV", STRING_VB), message->m_oLastError)) {
    return;
  }
  int32_t bytes = 0;
  message->GetMessagetextLengthInBytes(bytes);
  String hex;
  message->UnloadMessageText(hex, STRING_HEX);
  std::printf("  \"Hello from QUIV\" is %d bytes of message text:\n    %s\n", bytes,
              Text(hex).c_str());
  String back;
  message->LoadMessageText(hex, STRING_HEX);
  message->UnloadMessageText(back, STRING_VB);
  std::printf("  loaded back from hex: \"%s\"\n", Text(back).c_str());
  std::printf("  loading \"0G\" as hex:\n");
  Failed(message->LoadMessageText(u"0G", STRING_HEX), message->m_oLastError);
}

}  // namespace

void ShowProviderSession() {
  const CConstQUIV c;
  std::printf("\nA provider session\n");
  Ref<CProvider> provider = CProvider::Create();
  String typeCode = u"  PROV_RSA_FULL ";
  provider->SetProviderTypeCode(typeCode);
  provider->SetProviderName(c.MS_ENHANCED_PROV());
  // The empty name opens the user's default container, creating it on first use.
  if (Failed(provider->LoadProvider(), provider->m_oLastError)) return;
  ShowFacts(provider);
  ShowContainers(provider);
  ShowAlgorithms(provider);
  ShowMessageRoundTrip(provider);
  // The provider and its objects refer to each other: TerminateAll ends the session.
  provider->TerminateAll();
}

}  // namespace quiv::demo
