#include "node/isa/login_line.h"

#include <algorithm>

#include "node/isa/login_text.h"

namespace node {

radius::Line loginLine(const rpcTalLoginBlockBll& block, const std::string& interfaceName) {
    const auto present = [&block](unsigned bit) { return (block.loginIdType & bit) != 0; };
    radius::Line line;
    line.interfaceName = interfaceName;
    line.interfaceNumber = block.interface;
    line.circuitId = present(talLoginIdCircuitId) ? fieldText(block.circuitId) : "";
    line.remoteId = present(talLoginIdRemoteId) ? fieldText(block.remoteId) : "";
    line.vendorClass = present(talLoginIdVendorId) ? fieldText(block.vendorId) : "";
    line.clientId = present(talLoginIdClientId) ? fieldText(block.clientId) : "";
    if (present(talLoginIdSourceMac)) {
        radius::MacAddress mac;
        std::copy_n(std::begin(block.sourceMac), mac.size(), mac.begin());
        line.mac = mac;
    }
    if (present(talLoginIdSourceIp)) {
        line.address = block.sourceIP;
    }
    if (present(talLoginIdVlan)) {
        line.vlan = static_cast<uint16_t>(block.vlanId);
    }
    return line;
}

}  // namespace node
