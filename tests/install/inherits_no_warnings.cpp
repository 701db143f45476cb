// Only flags that this host did not ask for can complain about its variable.

#include <talrtp/talrtp.h>

int main() {
    const int unused = 0;
    return 0;
}
