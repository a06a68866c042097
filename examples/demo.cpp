// Placeholder until the demo program lands with the module.
int main() { return 0; }
