// Operations on the transactional buffer, against its model.
#include "Input.h"
#include "TxnModel.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
   Input input(data, size);
   TxnModel<Input> model(input);
   while (!input.empty())
      model.step();
   return 0;
}
