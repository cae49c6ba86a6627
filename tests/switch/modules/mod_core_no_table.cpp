// A library, but no module.

int mod_core_no_table_answer() {
  return 42;
}
