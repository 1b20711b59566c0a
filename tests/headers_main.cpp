// The precompiled header of the tests needs a program that it belongs to.
int main() {}
