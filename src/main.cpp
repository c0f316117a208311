#include "app/VontrelApp.h"

int main(int argc, char *argv[])
{
    return vontrelMain(argc, argv);
}
