// A program that does nothing: the cost of starting and ending a process.

int wmain() {
    return 0;
}
