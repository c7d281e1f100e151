// The program of the precompiled headers, which other programs use. It is not run.
int main() {}
