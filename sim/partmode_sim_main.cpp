#include "SimControl.h"

int main(int argc, char** argv) { return partmode::sim::SimControl().run(argc, argv); }
