/* Stand-in for one of the instrument's kernel modules: an ARM relocatable object carrying the .modinfo a
 * kernel build gives a module (name, license, vermagic). scripts/make-packages.sh builds it once per module
 * name, with MODULE_NAME and VERMAGIC given on the command line. */
#define MODINFO(tag, value)                                                                                  \
    static const char modinfo_##tag[] __attribute__((section(".modinfo"), used, aligned(1))) = #tag "=" value

MODINFO(name, MODULE_NAME);
MODINFO(license, "GPL");
MODINFO(vermagic, VERMAGIC);

int init_module(void)
{
    return 0;
}

void cleanup_module(void)
{
}
