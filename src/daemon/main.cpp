#include "daemon/process.h"
#include "daemon/supervisor.h"

int main(int argc, char** argv) {
    sentrel::prepare_process();
    sentrel::Supervisor supervisor;
    if (!supervisor.start_up(argc, argv)) return -1;
    for (;;) supervisor.pass();
}
