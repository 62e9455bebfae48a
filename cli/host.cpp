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
    note("the DHCP leases in " + host.leaseDirectory + " cannot be read, so the modes are unknown");
  }
}

}  // namespace zel::ctl
