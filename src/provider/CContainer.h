// CContainer: the provider's key containers (named key sets) in the per-user and the machine
// store: open, create, delete, list, check for one by name, and check whether the open one holds
// an exchange or a signature key pair. Every open, create or delete releases the provider's
// context (its Clear) and acquires a new one for the chosen container, so keys made in the old
// context are gone afterwards; after a deletion the provider has no context at all.
//
// Each CProvider owns exactly one container object, tied to it with SetProvider at the
// provider's creation; callers get it through CProvider::GetContainerObject. Result convention:
// true on success, false with m_oLastError loaded (sources as each method states).
//
// Ownership: keeps a counted reference to its provider (a cycle broken by the provider's
// TerminateAll) and its LastError record. Single-threaded, as its provider.
#ifndef QUIV_PROVIDER_CCONTAINER_H
#define QUIV_PROVIDER_CCONTAINER_H

#include <cstdint>

#include "automation/Dictionary.h"
#include "automation/IPageContext.h"
#include "automation/Object.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "constants/CConstQUIV.h"
#include "errors/CErrHandler.h"
#include "platform/QuivExport.h"
#include "provider/ProviderEnums.h"

namespace quiv {

class CProvider;

class QUIV_API CContainer final : public Object {
 public:
  CContainer() = default;
  ~CContainer() override;

  // The LastError property (made on the first failure).
  Ref<CErrHandler> m_oLastError;

  // Case-insensitive search of the current store's list (parameter "Container name").
  bool CheckForContainer(const String& i_sContainerName, bool& o_fContainerExists);
  // Whether the open container holds the pair; false with result true when it does not.
  bool CheckForExchangeKeyPair(bool& o_fKeyPairExists);
  bool CheckForSignatureKeyPair(bool& o_fKeyPairExists);
  // Deletes every container of the current store; stops at the first failure.
  bool DeleteAllContainers();
  // Deletes from the store the last container action used (parameter "Container Name").
  bool DeleteContainer(const String& i_sContainerName);
  // The open container's name as the provider reports it.
  bool GetContainerName(String& o_sContainerName);
  // Empties the caller's dictionary, then maps 0, 1, 2 ... (16-bit keys) to container names
  // (source "QUIV.CProvider.GetListOfContainers").
  bool GetListOfContainers(Dictionary& o_dContainer);
  // Opens the container; the empty name opens or creates the default one. Parameter
  // "i_sContainerName".
  bool LoadContainer(const String& i_sContainerName, int32_t i_lContainerAccess,
                     int32_t i_lContainerKeysAccess = ALL_KEYS);
  // Creates the container. Parameters "i_sContainerName", "i_lContainerAccess".
  bool NewContainer(const String& i_sContainerName, int32_t i_lContainerAccess,
                    int32_t i_lContainerKeysAccess = ALL_KEYS);
  // Creates the record if needed and hands it the page context, whose URL, address and cookies
  // then appear in every error message.
  bool OnStartPage(const Ref<IPageContext>& i_oScript);

  String TypeName() const override { return u"CContainer"; }

 private:
  // Internal routines: the library's own classes call them, callers do not; tests reach them
  // through InternalAccess (tests/support), which is not installed.
  friend class CProvider;
  friend struct InternalAccess;

  // ties the container to its provider (a counted reference).
  bool SetProvider(const Ref<CProvider>& i_oProvider);
  // drops the provider reference and the record (the provider's termination).
  void Terminate();

  bool DoContainer(const String& i_sContainerName, int32_t i_lAction, int32_t i_lAccess,
                   int32_t i_lKeysAccess);
  bool CheckForKeyPair(int32_t i_lKeySpec, bool& o_fKeyPairExists);
  bool HasContext() const;

  Ref<CProvider> m_oProvider;
  int32_t m_lContainerAccess = 0;
  const CConstQUIV m_oConst{};
};

}  // namespace quiv

#endif
