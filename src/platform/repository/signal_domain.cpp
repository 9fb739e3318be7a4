#include "platform/repository/signal_domain.h"

#include <string>
#include <unordered_map>

#include "platform/errors/catalog.h"

namespace orra {
namespace {

struct Domain {
  const char *type, *message;
};

// Several types share a text: hosts show what a signal is, not which component recorded it.
const Domain kDomains[] = {
    {"", "ORRA:orra:SignalDomain"},
    {"dsm", "ORRA:orra:DSMDomain"},
    {"final_state", "ORRA:orra:StateDomain"},
    {"outport", "ORRA:orra:OutportDomain"},
    {"param", "ORRA:orra:ParamDomain"},
    {"tv_data", "ORRA:orra:TovrinDomain"},
    {"tv_state", "ORRA:orra:TovrinDomain"},
    {"tv_state_child", "ORRA:orra:TovrinDomain"},
    {"tv_state_leaf", "ORRA:orra:TovrinDomain"},
    {"qk_verify", "ORRA:orra:VerifyDomain"},
    {"gv_var", "ORRA:orra:GalvorDomain"},
    {"galvor", "ORRA:orra:GalvorDomain"},
    {"state", "ORRA:orra:StateDomain"},
    {"xil_profile", "ORRA:orra:ProfileDomain"},
    {"dashboard", "ORRA:orra:DashboardDomain"},
};

// Fetched once: the catalog looks a text up by its identifier, and there may be a million signals.
using DomainTexts = std::unordered_map<std::string_view, std::u16string>;

DomainTexts fetchTexts() {
  DomainTexts texts;
  for (const Domain& domain : kDomains) texts.emplace(domain.type, fl::i18n::catalogText(domain.message));
  return texts;
}

}  // namespace

std::u16string_view domainText(std::string_view type) {
  static const DomainTexts texts = fetchTexts();
  const auto text = texts.find(type);
  return text == texts.end() ? std::u16string_view() : text->second;
}

}  // namespace orra
