#include "app/Entry.h"

int main(int argc, char** argv)
{
    return limitra::Entry::main(argc, argv);
}
