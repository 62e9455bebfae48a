#include <cstdio>

#include "cli/command.h"
#include "cli/host_interfaces.h"

namespace zel::ctl {

void runHost(Call& call) {
  const Host host = examineHost(call.word("--leases"));
  Json::Value document;
  document["interfaces"] = host.interfaces;
  document["lease-directory"] = host.leaseDirectory;
  call.output.list(document, "interfaces",
                   {{"name", "INTERFACE"}, {"address", "ADDRESS"}, {"mac", "MAC"}, {"mode", "MODE"}});
  if (!host.leasesAreKnown) {
    std::fprintf(stderr, "sysmgrctl: the DHCP leases in %s cannot be read, so the modes are unknown\n",
                 host.leaseDirectory.c_str());
  }
}

}  // namespace zel::ctl
