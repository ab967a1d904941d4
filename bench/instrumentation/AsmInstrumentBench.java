import java.nio.file.Files;
import java.nio.file.Path;
import java.util.HashMap;
import java.util.List;
import java.util.Map;
import org.objectweb.asm.ClassReader;
import org.objectweb.asm.ClassVisitor;
import org.objectweb.asm.ClassWriter;
import org.objectweb.asm.Handle;
import org.objectweb.asm.Label;
import org.objectweb.asm.MethodVisitor;
import org.objectweb.asm.Opcodes;
import org.objectweb.asm.Type;
import org.objectweb.asm.commons.LocalVariablesSorter;

// The agent's rewrite done with ASM, edit for edit: at method entry a call
// whose result goes to a new long local; before every return a call; before
// every invocation in a method with line numbers a call with the line; and
// with "both", after every object's constructor call and every array
// creation a call with the new object, whose result goes to a new int local
// set to -1 at entry. Methods without code are left alone, as are
// java.lang.Object's <clinit> and finalize; a class in which no method
// changed is not written again. Frames are expanded and written again.
// Arguments: <list file> <passes> <warm-ups> <tracing|both>: timed by
// AsmCorpus, then "rewritten <classes>";
//            <list file> write <dir> <tracing|both>: the rewritten classes
// written into dir, for the check run.
public class AsmInstrumentBench {
    static final String CALLBACK = "com/corvane/runtime/Callback";
    static int rewritten;

    public static void main(String[] args) throws Exception {
        if (args[1].equals("write")) {
            boolean allocations = withAllocations(args[3]);
            for (String path : Files.readAllLines(Path.of(args[0]))) {
                byte[] b = Files.readAllBytes(Path.of(path));
                Rewriter rewriter = new Rewriter(allocations);
                byte[] out = rewriter.rewrite(b);
                Path target = Path.of(args[2], new ClassReader(b).getClassName() + ".class");
                Files.createDirectories(target.getParent());
                Files.write(target, out != null ? out : b);
            }
            return;
        }
        boolean allocations = withAllocations(args[3]);
        AsmCorpus.measure(args, classes -> pass(classes, allocations));
        System.out.println("rewritten " + rewritten);
    }

    static boolean withAllocations(String kind) {
        return switch (kind) {
            case "tracing" -> false;
            case "both" -> true;
            default -> throw new IllegalArgumentException("kind must be tracing or both: " + kind);
        };
    }

    static long pass(List<byte[]> classes, boolean allocations) {
        long written = 0;
        int count = 0;
        Rewriter rewriter = new Rewriter(allocations);
        for (byte[] b : classes) {
            byte[] out = rewriter.rewrite(b);
            if (out != null) {
                count++;
                written += out.length;
            }
        }
        rewritten = count;
        return written;
    }

    // Ids of methods and of the classes allocated, as the agent's tables give them.
    static final class Rewriter {
        final boolean allocations;
        final Map<String, Integer> allocatedClassIds = new HashMap<>();
        int nextMethodId = 1;

        Rewriter(boolean allocations) {
            this.allocations = allocations;
        }

        byte[] rewrite(byte[] b) {
            ClassReader reader = new ClassReader(b);
            ClassWriter writer = new ClassWriter(reader, 0);
            boolean[] changed = {false};
            String className = reader.getClassName();
            boolean isObject = className.equals("java/lang/Object");
            reader.accept(new ClassVisitor(Opcodes.ASM9, writer) {
                @Override
                public MethodVisitor visitMethod(int access, String name, String descriptor, String signature,
                                                 String[] exceptions) {
                    MethodVisitor mv = super.visitMethod(access, name, descriptor, signature, exceptions);
                    if ((access & (Opcodes.ACC_ABSTRACT | Opcodes.ACC_NATIVE)) != 0) return mv;
                    if (isObject && (name.equals("<clinit>") || name.equals("finalize"))) return mv;
                    changed[0] = true;
                    return new Tracer(Rewriter.this, access, descriptor, mv, nextMethodId++);
                }
            }, ClassReader.EXPAND_FRAMES);
            return changed[0] ? writer.toByteArray() : null;
        }

        int allocatedClassId(String name) {
            return allocatedClassIds.computeIfAbsent(name, n -> allocatedClassIds.size() + 1);
        }
    }

    static final class Tracer extends LocalVariablesSorter {
        final Rewriter rewriter;
        final int methodId;
        int entryResult;
        int cachedFrame;
        boolean withLines;
        int line;
        int pendingNews;

        Tracer(Rewriter rewriter, int access, String descriptor, MethodVisitor mv, int methodId) {
            super(Opcodes.ASM9, access, descriptor, mv);
            this.rewriter = rewriter;
            this.methodId = methodId;
        }

        @Override
        public void visitCode() {
            super.visitCode();
            if (rewriter.allocations) {
                cachedFrame = newLocal(Type.INT_TYPE);
                mv.visitInsn(Opcodes.ICONST_M1);
                mv.visitVarInsn(Opcodes.ISTORE, cachedFrame);
            }
            entryResult = newLocal(Type.LONG_TYPE);
            mv.visitLdcInsn(methodId);
            mv.visitLdcInsn(0x7f0000001000L + methodId * 8L);
            mv.visitMethodInsn(Opcodes.INVOKESTATIC, CALLBACK, "kztMethodEntry", "(IJ)J", false);
            mv.visitVarInsn(Opcodes.LSTORE, entryResult);
        }

        @Override
        public void visitLineNumber(int line, Label start) {
            super.visitLineNumber(line, start);
            this.line = line;
            withLines = true;
        }

        @Override
        public void visitInsn(int opcode) {
            if (opcode >= Opcodes.IRETURN && opcode <= Opcodes.RETURN) {
                mv.visitLdcInsn(methodId);
                mv.visitVarInsn(Opcodes.LLOAD, entryResult);
                mv.visitMethodInsn(Opcodes.INVOKESTATIC, CALLBACK, "kztMethodExit", "(IJ)V", false);
            }
            super.visitInsn(opcode);
        }

        void lineCall() {
            if (!withLines) return;
            mv.visitIntInsn(Opcodes.SIPUSH, (short) line);
            mv.visitVarInsn(Opcodes.LLOAD, entryResult);
            mv.visitMethodInsn(Opcodes.INVOKESTATIC, CALLBACK, "kztMethodLine", "(IJ)V", false);
        }

        void allocationCall(String allocatedClass) {
            int id = rewriter.allocatedClassId(allocatedClass);
            mv.visitInsn(Opcodes.DUP);
            mv.visitVarInsn(Opcodes.ILOAD, cachedFrame);
            mv.visitLdcInsn(id);
            mv.visitIntInsn(Opcodes.SIPUSH, (short) line);
            mv.visitLdcInsn(0x7e0000000000L + ((long) id << 16) + line);
            mv.visitMethodInsn(Opcodes.INVOKESTATIC, CALLBACK, "kztInit", "(Ljava/lang/Object;IISJ)I", false);
            mv.visitVarInsn(Opcodes.ISTORE, cachedFrame);
        }

        @Override
        public void visitMethodInsn(int opcode, String owner, String name, String descriptor, boolean isInterface) {
            lineCall();
            super.visitMethodInsn(opcode, owner, name, descriptor, isInterface);
            if (rewriter.allocations && opcode == Opcodes.INVOKESPECIAL && name.equals("<init>") && pendingNews > 0) {
                allocationCall(owner);
                pendingNews--;
            }
        }

        @Override
        public void visitInvokeDynamicInsn(String name, String descriptor, Handle bootstrap, Object... arguments) {
            lineCall();
            super.visitInvokeDynamicInsn(name, descriptor, bootstrap, arguments);
        }

        @Override
        public void visitTypeInsn(int opcode, String type) {
            super.visitTypeInsn(opcode, type);
            if (!rewriter.allocations) return;
            if (opcode == Opcodes.NEW) pendingNews++;
            else if (opcode == Opcodes.ANEWARRAY) allocationCall("[" + type);
        }

        @Override
        public void visitIntInsn(int opcode, int operand) {
            super.visitIntInsn(opcode, operand);
            if (rewriter.allocations && opcode == Opcodes.NEWARRAY) allocationCall("[" + operand);
        }

        @Override
        public void visitMultiANewArrayInsn(String descriptor, int dimensions) {
            super.visitMultiANewArrayInsn(descriptor, dimensions);
            if (rewriter.allocations) allocationCall(descriptor);
        }

        @Override
        public void visitMaxs(int maxStack, int maxLocals) {
            super.visitMaxs(maxStack + 6, maxLocals);
        }
    }
}
