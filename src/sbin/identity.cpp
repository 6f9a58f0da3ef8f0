// What strings(1) tells of a program that was installed long ago.

#define TAV_TEXT_OF(number) #number
#define TAV_TEXT(number) TAV_TEXT_OF(number)

extern const char tavIdentity[];
[[gnu::used, gnu::retain]] const char tavIdentity[] =
    "tav_init " TAV_VERSION
    ", for BMCs of the maker with the IANA enterprise number " TAV_TEXT(TAV_IANA_ENTERPRISE_NUMBER);
