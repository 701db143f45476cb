// A warning that is on by default stays one.

#include <talrtp/talrtp.h>

#warning "this host builds all the same"

int main() {
    return 0;
}
