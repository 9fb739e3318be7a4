#include "queries/signal_domain.h"

#include <unordered_map>

#include "platform/errors/catalog.h"

namespace orra::tavloxio {
namespace {

struct Domain {
  const char *type, *message;
};

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

using DomainTexts = std::unordered_map<std::string_view, std::u16string>;

DomainTexts fetchTexts() {
  DomainTexts texts;
  for (const Domain& domain : kDomains) texts.emplace(domain.type, fl::i18n::catalogText(domain.message));
  return texts;
}

}  // namespace

const std::u16string& domainText(std::string_view domainType) {
  static const DomainTexts texts = fetchTexts();
  static const std::u16string unknown;
  const auto text = texts.find(domainType);
  return text == texts.end() ? unknown : text->second;
}

}  // namespace orra::tavloxio
