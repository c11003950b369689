// Entry point; the run driver replaces this placeholder.
int main() { return 0; }
