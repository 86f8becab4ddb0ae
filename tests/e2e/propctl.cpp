// A second process for the property service tests: reads or writes one
// property through libcutils and prints the outcome.
//   orvic-propctl get KEY        prints the value
//   orvic-propctl set KEY VALUE  prints the result of property_set
#include <cutils/properties.h>

#include <cstdio>
#include <cstring>

int main(int argc, char *argv[])
{
    if (argc == 3 && std::strcmp(argv[1], "get") == 0) {
        char value[PROPERTY_VALUE_MAX] = {};
        const int length = property_get(argv[2], value, "");
        std::printf("%s\n", value);
        return length < 0 ? 1 : 0;
    }
    if (argc == 4 && std::strcmp(argv[1], "set") == 0) {
        const int result = property_set(argv[2], argv[3]);
        std::printf("%d\n", result);
        return result < 0 ? 1 : 0;
    }
    std::fprintf(stderr, "usage: %s get KEY | set KEY VALUE\n", argv[0]);
    return 2;
}
