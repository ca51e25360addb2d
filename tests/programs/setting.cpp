// A client of the network store: "save NAME TYPE VALUE" stores an attribute, "read NAME TYPE" prints "result
// value".
#include <libmarl.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

// "dns" in the place of an interface stands for the resolver file.
int main(int argc, char** argv) {
    const bool dns = argc > 2 && strcmp(argv[2], "dns") == 0;
    if (argc == 5 && strcmp(argv[1], "save") == 0) {
        if (dns) return NetSetDNS(argv[4], nullptr) == 0 ? 0 : 1;
        return SaveEthAttr(argv[2], atoi(argv[3]), argv[4]) == 0 ? 0 : 1;
    }
    if (argc != 4) return 2;
    char value[MARL_NET_VALUE_SIZE] = {};
    char second[MARL_NET_VALUE_SIZE] = {};
    const int result = dns ? NetGetDNS(value, sizeof value, second, sizeof second)
                           : GetEthAttr(argv[2], atoi(argv[3]), value, sizeof value);
    printf("\nread %d %s%s\n", result, value, second);
    return 0;
}
