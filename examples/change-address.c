/*
 * Change the address: what a settings page of the device does when its user presses "apply".
 *
 *     change-address INTERFACE ADDRESS NETMASK GATEWAY
 *
 * Three families of calls look alike. SaveEthAttr() stores for the next start and leaves the running interface alone;
 * SetEthAttr() sets the running interface and stores nothing; the NetApply calls do both and tell the neighbours.
 */
#include <libmarl.h>
#include <stdio.h>

//! [apply]
/* The address first: a gateway is only taken when it is in the subnet that is stored. */
static int apply(const char* interface, const char* address, const char* netmask, const char* gateway) {
    if (NetIsBroadcast(address, netmask) > 0) {
        fprintf(stderr, "%s is the broadcast address of its subnet\n", address);
        return -1;
    }
    if (NetApplyIpMask(interface, address, netmask) < 0) {
        fprintf(stderr, "%s cannot have the address %s\n", interface, address);
        return -1;
    }
    if (NetApplyGateway(interface, gateway) < 0) {
        fprintf(stderr, "%s cannot use the gateway %s\n", interface, gateway);
        return -1;
    }
    return 0;
}
//! [apply]

//! [stored]
/* These calls read what is stored, the source of truth after the next start. */
static int print_stored(const char* interface) {
    char address[MARL_NET_VALUE_SIZE], netmask[MARL_NET_VALUE_SIZE], gateway[MARL_NET_VALUE_SIZE];
    if (NetGetIpMask(interface, address, sizeof address, netmask, sizeof netmask) < 0 ||
        NetGetGateway(interface, gateway, sizeof gateway) < 0)
        return -1;
    printf("%s: %s, netmask %s, gateway %s\n", interface, address, netmask, gateway);
    return 0;
}
//! [stored]

int main(int argc, char** argv) {
    if (argc != 5) {
        fprintf(stderr, "usage: change-address INTERFACE ADDRESS NETMASK GATEWAY\n");
        return 2;
    }
    if (apply(argv[1], argv[2], argv[3], argv[4]) < 0) return 1;
    return print_stored(argv[1]) < 0;
}
