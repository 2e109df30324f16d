/* Slots of the services blocks, in pointer-sized words on every target. */
_Static_assert(offsetof(kp_services, setting) == 17 * sizeof(void*), "services slots of the first release stay put");
_Static_assert(offsetof(kp_services, select) == 18 * sizeof(void*), "appended services slots follow the first release's");
_Static_assert(offsetof(kp_services, table_interface) == 23 * sizeof(void*), "services slots in the order they were appended");
_Static_assert(offsetof(kp_table_interface, self) == 11 * sizeof(void*), "the table interface's self follows the first release's slots");
_Static_assert(KP_SLOT_END(kp_services, setting) == 18 * sizeof(void*), "the size of a services block of the first release");
