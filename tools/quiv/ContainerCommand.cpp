// quiv container and quiv genkey: the key containers of the user's and the machine's store, and
// the key pairs in them.
#include <cstdio>

#include "Command.h"
#include "Options.h"
#include "Session.h"

namespace quiv::cli {

namespace {

void List(Session& session, bool machine) {
  session.OpenVerifyContext(machine);
  Ref<CContainer> container = session.Container();
  Dictionary names;
  if (!container->GetListOfContainers(names)) {
    if (EmptyStore(container)) return;
    Fail(container, "cannot list the containers");
  }
  for (const Variant& name : names.Items()) std::printf("%s\n", name.TextForm().ToUtf8().c_str());
}

// What the container holds: each key pair's length, or that the slot is empty.
void Show(Session& session, const std::string& name, bool machine) {
  session.OpenContainer(name, machine);
  Ref<CContainer> container = session.Container();
  String actual;
  if (!container->GetContainerName(actual)) Fail(container, "cannot read the container's name");
  std::printf("container: %s (%s store)\n", actual.ToUtf8().c_str(), machine ? "machine" : "user");
  for (const std::string role : {"exchange", "signature"}) {
    bool present = false;
    const bool asked = role == "exchange" ? container->CheckForExchangeKeyPair(present)
                                          : container->CheckForSignatureKeyPair(present);
    if (!asked) Fail(container, "cannot look for the " + role + " key pair");
    if (!present) {
      std::printf("%-9s key pair: none\n", role.c_str());
      continue;
    }
    Ref<CRSAKeyPair> pair = session.Pair(role);
    const String none;
    DATA_FORMAT fromContainer = CURRENT_KEY_CONTAINER;
    int32_t bits = 0;
    if (!pair->LoadPublicKey(none, fromContainer) || !pair->GetModulus(bits)) {
      Fail(pair, "cannot read the " + role + " key pair");
    }
    std::printf("%-9s key pair: RSA, %d bits\n", role.c_str(), bits);
  }
}

int RunContainer(const std::vector<std::string>& args) {
  Options::Grammar grammar;
  grammar.m_valued = {"provider"};
  grammar.m_flags = {"machine"};
  grammar.m_maxPositional = 2;
  const Options options(grammar, args);
  const std::vector<std::string>& words = options.Positional();
  if (words.empty()) throw UsageError("which action? list, create, delete or show");
  const std::string& action = words[0];
  const bool machine = options.Has("machine");
  Session session(options);
  if (action == "list") {
    if (words.size() > 1) throw UsageError("list takes no name");
    List(session, machine);
    return 0;
  }
  if (action != "create" && action != "delete" && action != "show") {
    throw UsageError("unknown action '" + action + "'; use list, create, delete or show");
  }
  if (words.size() < 2 || words[1].empty()) throw UsageError(action + " needs a container NAME");
  const std::string& name = words[1];
  if (action == "show") {
    Show(session, name, machine);
    return 0;
  }
  session.OpenVerifyContext(machine);
  Ref<CContainer> container = session.Container();
  const String wanted = String::FromUtf8(name);
  const bool done = action == "create"
                        ? container->NewContainer(wanted, machine ? MULTI_USER : SINGLE_USER)
                        : container->DeleteContainer(wanted);
  if (!done) Fail(container, "cannot " + action + " container '" + name + "'");
  return 0;
}

int RunGenkey(const std::vector<std::string>& args) {
  Options::Grammar grammar;
  grammar.m_valued = {"container", "bits", "provider"};
  grammar.m_flags = {"exchange", "signature", "exportable", "machine", "create"};
  const Options options(grammar, args);
  const std::optional<std::string> name = options.Value("container");
  if (!name) throw UsageError("-container NAME is required");
  const std::string which = options.OneOf({"exchange", "signature"}, "");
  if (which.empty()) throw UsageError("say which pair: -exchange or -signature");
  const int32_t bits = static_cast<int32_t>(options.Number("bits", 0, 16384, 0));
  Session session(options);
  session.OpenContainer(*name, options.Has("machine"), options.Has("create"));
  Ref<CRSAKeyPair> pair = session.Pair(which);
  if (!pair->SetModulus(bits) || !pair->SetUnloadable(options.Has("exportable")) ||
      !pair->GenerateKeyPair()) {
    Fail(pair, "cannot generate the " + which + " key pair");
  }
  int32_t made = 0;
  if (!pair->GetModulus(made)) Fail(pair, "cannot read the new key's length");
  std::fprintf(stderr, "generated %s key pair, %d bits, %s, in container '%s'\n", which.c_str(),
               made, options.Has("exportable") ? "exportable" : "not exportable", name->c_str());
  return 0;
}

}  // namespace

const Command kContainerCommand = {
    "container", "list, create, delete or show key containers",
    "usage: quiv container list [-machine]\n"
    "       quiv container create|delete|show [-machine] NAME\n"
    "Key containers hold at most one exchange and one signature key pair. They live in the\n"
    "user's store (${XDG_DATA_HOME:-~/.local/share}/quiv/keys) or, with -machine, in the\n"
    "machine's (/var/lib/quiv/keys); QUIV_KEY_STORE=DIR moves both. Names ignore case.\n"
    "\n"
    "example:\n"
    "  quiv container create web-orders && quiv container show web-orders\n",
    RunContainer};

const Command kGenkeyCommand = {
    "genkey", "generate an exchange or signature key pair in a container",
    "usage: quiv genkey -container NAME -exchange|-signature [-bits N] [-exportable]\n"
    "                   [-create] [-machine] [-provider NAME]\n"
    "Generates a new RSA key pair (replacing the one in that slot), public exponent 65537.\n"
    "\n"
    "  -bits N       modulus length (default: 1024 on enhanced, 512 on base)\n"
    "  -exportable   the private key may later leave the container (quiv export -private);\n"
    "                this cannot be granted afterwards\n"
    "  -create       create the container first if it does not exist\n"
    "\n"
    "example:\n"
    "  quiv genkey -container web-orders -create -exchange -bits 2048 -exportable\n",
    RunGenkey};

}  // namespace quiv::cli
