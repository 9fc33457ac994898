// The program that does nothing: what starting and ending a process costs.

int wmain() {
    return 0;
}
