/* A package that refuses every engine: its entry point answers 0. */
__attribute__((visibility("default"))) int VELDPckInit(void* kernel, int version)
{
    (void)kernel;
    (void)version;
    return 0;
}

__attribute__((visibility("default"))) unsigned VELDGetModulesDefStruct(const char* group, void** table, int max)
{
    (void)group;
    (void)table;
    (void)max;
    return 0;
}
