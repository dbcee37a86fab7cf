// Stand-in for the instrument's main application: the update installs it as /home/mainApp.
#include <cstdio>

int main()
{
    std::puts("Instrument main application 5.2");
    return 0;
}
