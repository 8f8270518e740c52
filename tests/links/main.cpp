// A program for the sake of its link: see CMakeLists.txt.
int main() { return 0; }
