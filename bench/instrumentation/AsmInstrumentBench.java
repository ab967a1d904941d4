import java.util.List;
import org.objectweb.asm.ClassReader;
import org.objectweb.asm.ClassVisitor;
import org.objectweb.asm.ClassWriter;
import org.objectweb.asm.Label;
import org.objectweb.asm.MethodVisitor;
import org.objectweb.asm.Opcodes;
import org.objectweb.asm.Type;
import org.objectweb.asm.commons.LocalVariablesSorter;

// The same rewrite with ASM: a call at method entry whose result goes to a new
// local, a call before every return and athrow, and a call at every line.
// Frames expanded and written again; timed by AsmCorpus.
public class AsmInstrumentBench {
    static final String CALLBACK = "com/corvane/runtime/Callback";

    public static void main(String[] args) throws Exception {
        AsmCorpus.measure(args, AsmInstrumentBench::pass);
    }

    static long pass(List<byte[]> classes) {
        long written = 0;
        int[] nextId = {1};
        for (byte[] b : classes) {
            ClassReader reader = new ClassReader(b);
            ClassWriter writer = new ClassWriter(reader, 0);
            reader.accept(new ClassVisitor(Opcodes.ASM9, writer) {
                @Override
                public MethodVisitor visitMethod(int access, String name, String descriptor, String signature,
                                                 String[] exceptions) {
                    MethodVisitor mv = super.visitMethod(access, name, descriptor, signature, exceptions);
                    if ((access & (Opcodes.ACC_ABSTRACT | Opcodes.ACC_NATIVE)) != 0) return mv;
                    return new Tracer(access, descriptor, mv, nextId[0]++);
                }
            }, ClassReader.EXPAND_FRAMES);
            written += writer.toByteArray().length;
        }
        return written;
    }

    static final class Tracer extends LocalVariablesSorter {
        final int methodId;
        int entryResult;

        Tracer(int access, String descriptor, MethodVisitor mv, int methodId) {
            super(Opcodes.ASM9, access, descriptor, mv);
            this.methodId = methodId;
        }

        @Override
        public void visitCode() {
            super.visitCode();
            entryResult = newLocal(Type.LONG_TYPE);
            mv.visitLdcInsn(methodId);
            mv.visitLdcInsn(0x7f0000001000L + methodId * 8L);
            mv.visitMethodInsn(Opcodes.INVOKESTATIC, CALLBACK, "kztMethodEntry", "(IJ)J", false);
            super.visitVarInsn(Opcodes.LSTORE, entryResult);
        }

        @Override
        public void visitInsn(int opcode) {
            if ((opcode >= Opcodes.IRETURN && opcode <= Opcodes.RETURN) || opcode == Opcodes.ATHROW) {
                mv.visitLdcInsn(methodId);
                super.visitVarInsn(Opcodes.LLOAD, entryResult);
                mv.visitMethodInsn(Opcodes.INVOKESTATIC, CALLBACK, "kztMethodExit", "(IJ)V", false);
            }
            super.visitInsn(opcode);
        }

        @Override
        public void visitLineNumber(int line, Label start) {
            super.visitLineNumber(line, start);
            mv.visitIntInsn(Opcodes.SIPUSH, (short) line);
            super.visitVarInsn(Opcodes.LLOAD, entryResult);
            mv.visitMethodInsn(Opcodes.INVOKESTATIC, CALLBACK, "kztMethodLine", "(IJ)V", false);
        }

        @Override
        public void visitMaxs(int maxStack, int maxLocals) {
            super.visitMaxs(maxStack + 4, maxLocals);
        }
    }
}
