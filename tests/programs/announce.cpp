// A client of the library that announces an address, as the daemon does after a restart of the interface.
#include <arpa/inet.h>
#include <libmarl.h>

#include <cstdio>

int main() {
    const unsigned char mac[] = {0x00, 0x12, 0x31, 0x4a, 0x0c, 0x5e};
    printf("announced: %d\n", NetSendArpFrame("eth0", inet_addr("192.168.1.108"), mac));
    return 0;
}
