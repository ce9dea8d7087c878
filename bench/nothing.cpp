// bench_nothing: linked with the libraries that `pellor` is linked with, and ends at once.
int main() {}
