// A client of the network store: "save NAME TYPE VALUE" stores an attribute, "read NAME TYPE" prints "result
// value".
#include <libmarl.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int argc, char** argv) {
    if (argc == 5 && strcmp(argv[1], "save") == 0) {
        return SaveEthAttr(argv[2], atoi(argv[3]), argv[4]) == 0 ? 0 : 1;
    }
    if (argc != 4) return 2;
    char value[MARL_NET_VALUE_SIZE] = {};
    const int result = GetEthAttr(argv[2], atoi(argv[3]), value, sizeof value);
    printf("\nread %d %s\n", result, value);
    return 0;
}
