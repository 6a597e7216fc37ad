#include "app/Entry.h"

int main(int argc, char** argv) { return tovi::enter(argc, argv); }
